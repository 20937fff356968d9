#include "../fakes/PanelFakes.h"
#include "common/Formatting.h"
#include "history/GifHistoryStore.h"
#include "sharing/PreviewPanelController.h"

#include <QApplication>
#include <QClipboard>
#include <QMenu>
#include <QScreen>
#include <QStandardPaths>
#include <QTest>

#include <sys/stat.h>

using namespace vantalo;
using namespace vantalo::test;
using namespace std::chrono_literals;

class PreviewPanelTest : public QObject
{
    Q_OBJECT

    std::unique_ptr<TemporaryHistory> m_history;
    std::unique_ptr<PreviewPanelController> m_controller;
    ManualScheduler* m_clock = nullptr;
    FakeUploader* m_cloud = nullptr;
    FakeUploader* m_hosted = nullptr;
    QStringList m_printed;
    QList<QUrl> m_opened;
    QStringList m_trimmed;

    void makeController(bool withHosted, bool compositing = false)
    {
        auto clock = std::make_unique<ManualScheduler>();
        auto cloud = std::make_unique<FakeUploader>();
        auto hosted = withHosted ? std::make_unique<FakeUploader>() : nullptr;
        m_clock = clock.get();
        m_cloud = cloud.get();
        m_hosted = hosted.get();
        m_controller = std::make_unique<PreviewPanelController>(PreviewPanelServices{
            .historyStore = m_history->store,
            .cloudUploader = std::move(cloud),
            .hostedUploader = std::move(hosted),
            .scheduler = std::move(clock),
            .compositing = [compositing] { return compositing; },
            .openUrl = [this](const QUrl& url) { m_opened.append(url); },
            .print = [this](const QString& line) { m_printed.append(line); },
        });
        m_controller->onTrim = [this](const QString& path, const std::optional<QUuid>&) {
            m_trimmed.append(path);
        };
    }

    GifHistoryItem keptGif(QSize size = QSize(1000, 800)) { return m_history->keep(size); }

    QList<PreviewPanelView*> panelsOnScreen() const
    {
        QList<PreviewPanelView*> panels;
        for (QWidget* w : QApplication::topLevelWidgets()) {
            if (auto* panel = qobject_cast<PreviewPanelView*>(w); panel && panel->isVisible()) {
                panels.append(panel);
            }
        }
        return panels;
    }

    // Open until `after` from now, and closed then.
    bool closesIn(std::chrono::seconds after)
    {
        m_clock->advance(after - 1s);
        const bool open = m_controller->panel();
        m_clock->advance(1s);
        return open && !m_controller->panel();
    }

    QStringList feedbackShown() const
    {
        QStringList messages;
        for (QWidget* w : QApplication::topLevelWidgets()) {
            if (auto* message = qobject_cast<FeedbackMessageWindow*>(w); message && message->isVisible()) {
                messages.append(message->message());
            }
        }
        return messages;
    }

private Q_SLOTS:
    void init()
    {
        m_history = std::make_unique<TemporaryHistory>();
        m_printed.clear();
        m_opened.clear();
        QApplication::clipboard()->clear();
        makeController(false);
    }

    void cleanup()
    {
        m_controller.reset();
        // A panel takes its menu with it.
        QList<QPointer<QWidget>> windows;
        for (QWidget* w : QApplication::topLevelWidgets()) {
            windows.append(w);
        }
        qDeleteAll(windows);
    }

    void panelSitsAtTheBottomRightWithThePictureAndItsSize()
    {
        const GifHistoryItem item = keptGif();
        const QString path = m_history->store.filePath(item);
        m_controller->show(path, item.id);
        PreviewPanelView* panel = m_controller->panel();
        QVERIFY(panel && panel->isVisible());

        // 1000 × 800 fits into 280 × 220 as 275 × 220; the panel adds the divider and the row.
        QCOMPARE(panel->preview()->fittedSize(), QSize(275, 220));
        QCOMPARE(panel->size(), QSize(280, 220 + 1 + 54));
        QCOMPARE(panel->preview()->badge(), fileSizeLabel(QFileInfo(path).size()));
        QTRY_VERIFY(panel->preview()->isPlaying());

        // An unreadable file: no picture, no size, and the actions still act on the file.
        const QString broken = writeFile(m_history->dir.filePath(QStringLiteral("broken.gif")), "not a gif");
        m_controller->show(broken, std::nullopt);
        QVERIFY(m_controller->panel()->preview()->fittedSize().isEmpty());
        QCOMPARE(m_controller->panel()->preview()->badge(), fileSizeLabel(9));
        m_controller->show(m_history->dir.filePath(QStringLiteral("gone.gif")), std::nullopt);
        QCOMPARE(m_controller->panel()->preview()->badge(), QString());
        m_controller->copyGIFToClipboard(m_history->dir.filePath(QStringLiteral("gone.gif")));
        QCOMPARE(m_printed.size(), 1);
        QVERIFY(m_printed.first().startsWith(QStringLiteral("Copy error: ")));
        QVERIFY(feedbackShown().isEmpty());
    }

    void closesAMinuteAfterTheLastUploadOrCopyButNotAfterOpen()
    {
        const GifHistoryItem item = keptGif(QSize(64, 48));
        const QString path = m_history->store.filePath(item);
        m_controller->show(path, item.id);
        m_clock->advance(50s);
        m_controller->panel()->copyButton()->click(); // what it copies: the end-to-end flow
        QCOMPARE(feedbackShown(), QStringList{QStringLiteral("Copied!")});
        QVERIFY(closesIn(60s)); // at 110 s
        QVERIFY(panelsOnScreen().isEmpty());
        QCOMPARE(m_clock->pending(), 0);

        // Clicking the picture opens the file and leaves the closing time alone.
        m_controller->show(path, item.id);
        m_clock->advance(50s);
        QTest::mouseClick(m_controller->panel()->preview(), Qt::LeftButton);
        QCOMPARE(m_opened, QList<QUrl>{QUrl::fromLocalFile(path)});
        m_clock->advance(10s);
        QVERIFY(!m_controller->panel());

        // A drag of the picture holds the panel for as long as it lasts, and a minute after.
        m_controller->show(path, item.id);
        m_clock->advance(50s);
        m_controller->panel()->onDragging(true);
        m_clock->advance(120s);
        QVERIFY(m_controller->panel());
        m_controller->panel()->onDragging(false);
        QVERIFY(closesIn(60s));

        // Copy URL without a link does nothing, not even keep the panel.
        m_controller->show(path, item.id);
        m_clock->advance(50s);
        m_controller->copyUploadedURL();
        m_clock->advance(10s);
        QVERIFY(!m_controller->panel());
    }

    void twoQuickShowsLeaveOnePanelThatStillCloses()
    {
        makeController(false, true); // with a compositor: the panels fade
        const GifHistoryItem item = keptGif(QSize(64, 48));
        m_controller->show(m_history->store.filePath(item), item.id);
        PreviewPanelView* first = m_controller->panel();
        m_controller->show(m_history->store.filePath(item), item.id);
        QVERIFY(m_controller->panel() != first);
        QTRY_COMPARE(panelsOnScreen().size(), 1);
        QCOMPARE(m_controller->panel(), panelsOnScreen().first());
        QCOMPARE(m_clock->pending(), 1);

        m_controller->panel()->closeButton()->click();
        QCOMPARE(m_clock->pending(), 0);
        QTRY_VERIFY(panelsOnScreen().isEmpty());
        QVERIFY(!m_controller->panel());

        m_controller->show(m_history->store.filePath(item), item.id);
        m_controller->show(m_history->store.filePath(item), item.id);
        m_clock->advance(60s);
        QTRY_VERIFY(panelsOnScreen().isEmpty());
    }

    void uploadGoesReadyUploadingUploadedAndRecordsTheLink()
    {
        const GifHistoryItem item = keptGif(QSize(64, 48));
        const QString path = m_history->store.filePath(item);
        m_controller->show(path, item.id);
        PreviewPanelView* panel = m_controller->panel();
        QCOMPARE(panel->shownRow(), PreviewPanelState::Row::ready);

        // A failed upload says so, and why on the panel for a while, then the actions come back.
        panel->uploadButton()->click();
        m_cloud->calls[0].done(std::unexpected(Failure{QStringLiteral("Upload failed: HTTP 403")}));
        QCOMPARE(panel->shownRow(), PreviewPanelState::Row::notice);
        QCOMPARE(panel->rowText(), QStringLiteral("Upload failed: HTTP 403"));
        m_clock->advance(PreviewPanelController::noticeInterval);
        QCOMPARE(panel->shownRow(), PreviewPanelState::Row::ready);
        QCOMPARE(feedbackShown(), QStringList{QStringLiteral("Upload failed")});
        QCOMPARE(m_printed, QStringList{QStringLiteral("Upload error: Upload failed: HTTP 403")});
        QVERIFY(!m_history->store.loadItems().first().uploadURL);
        QVERIFY(panel->cancelButton()->isHidden()); // nothing the user could change here
        // Where the settings are the cause, a button leads to them.
        int settingsOpened = 0;
        m_controller->onOpenUploadSettings = [&settingsOpened] { ++settingsOpened; };
        panel->uploadButton()->click();
        m_cloud->calls[1].done(std::unexpected(Failure{QStringLiteral("Cloud upload not configured"), true}));
        QVERIFY(!panel->cancelButton()->isHidden());
        QCOMPARE(panel->cancelButton()->text(), QStringLiteral("Preferences"));
        panel->cancelButton()->click();
        QCOMPARE(settingsOpened, 1);
        m_clock->advance(PreviewPanelController::noticeInterval);
        QCOMPARE(panel->shownRow(), PreviewPanelState::Row::ready);
        m_cloud->calls.erase(m_cloud->calls.begin() + 1);

        m_clock->advance(30s);
        panel->uploadButton()->click();
        QCOMPARE(panel->shownRow(), PreviewPanelState::Row::uploading);
        QCOMPARE(panel->rowText(), QStringLiteral("Uploading\u2026"));
        QCOMPARE(m_cloud->calls.size(), size_t(2));
        QCOMPARE(m_cloud->calls[1].filename, item.filename);
        QCOMPARE(m_cloud->calls[1].data, testGif(QSize(64, 48)));
        m_cloud->calls[1].progress(42, 100);
        QCOMPARE(panel->rowText(), QStringLiteral("Uploading\u2026 42%"));

        const QUrl link(QStringLiteral("https://cdn.example.com/gifs/") + item.filename);
        m_cloud->calls[1].done(UploadResult{link, 100});
        QCOMPARE(panel->shownRow(), PreviewPanelState::Row::uploaded);
        QCOMPARE(panel->uploadButton()->text(), QStringLiteral("Copy URL"));
        QCOMPARE(panel->uploadButton()->tint(), QColor::fromRgbF(0.3f, 0.9f, 0.45f));
        // The link on the clipboard and in the history: the end-to-end flow.
        QCOMPARE(feedbackShown(), QStringList{QStringLiteral("Copied!")}); // in place of the failure's

        // The upload moved the closing to 90 s; Copy URL at 80 s moves it to 140 s.
        m_clock->advance(50s);
        QApplication::clipboard()->clear();
        panel->uploadButton()->click();
        QCOMPARE(QApplication::clipboard()->text(), link.toString());
        QVERIFY(closesIn(60s));

        // A panel always opens in the not-uploaded state, even for an uploaded item.
        m_controller->show(path, item.id);
        QCOMPARE(m_controller->panel()->shownRow(), PreviewPanelState::Row::ready);

        // A file that cannot be read fails without reaching the uploader.
        m_controller->show(m_history->dir.filePath(QStringLiteral("gone.gif")), std::nullopt);
        m_controller->panel()->uploadButton()->click();
        QCOMPARE(m_cloud->calls.size(), size_t(2));
        QCOMPARE(m_controller->panel()->shownRow(), PreviewPanelState::Row::notice);
        QVERIFY(m_printed.last().startsWith(QStringLiteral("Upload error: ")));
        QCOMPARE(QStringLiteral("Upload error: ") + m_controller->panel()->rowText(), m_printed.last());
    }

    void uploadOutlivesItsPanelAndTheHostedServiceTakesEveryUpload()
    {
        makeController(true);
        const GifHistoryItem item = keptGif(QSize(64, 48));
        const QString loose =
            writeFile(m_history->dir.filePath(QStringLiteral("loose.gif")), testGif(QSize(8, 8)));
        m_controller->show(loose, std::nullopt);
        const std::shared_ptr<PreviewPanelState> looseState = m_controller->panelState();
        m_controller->panel()->uploadButton()->click();
        QVERIFY(m_cloud->calls.empty());
        QCOMPARE(m_hosted->calls.size(), size_t(1));

        // Another GIF is shown before the answer arrives: the answer still belongs to the first.
        m_controller->show(m_history->store.filePath(item), item.id);
        const QUrl link(QStringLiteral("https://cdn.example.com/abc.gif"));
        m_hosted->calls[0].done(UploadResult{link, 10});
        QCOMPARE(looseState->uploadedURL(), std::optional(link));
        QCOMPARE(m_controller->panel()->shownRow(), PreviewPanelState::Row::ready);
        QCOMPARE(QApplication::clipboard()->text(), link.toString());
        QVERIFY(!m_history->store.loadItems().first().uploadURL); // the loose GIF has no history entry

        // Deleting it removes only the file; the history's entries stay (with an id, the
        // end-to-end flow checks both go).
        m_controller->show(loose, std::nullopt);
        m_controller->panel()->deleteButton()->click();
        QVERIFY(!m_controller->panel());
        QVERIFY(!QFile::exists(loose));
        QCOMPARE(m_history->store.loadItems().size(), 1);
        QVERIFY(QFile::exists(m_history->store.filePath(item)));

        // A listed GIF goes to the desktop's trash, with Undo where Cancel stands for a few
        // seconds: the file and its entry come back in their place. Deleted again, the panel goes
        // with the notice, and the GIF stays in the trash.
        using Row = PreviewPanelState::Row;
        const GifHistoryItem newer = keptGif(QSize(32, 24));
        const QString path = m_history->store.filePath(item);
        const auto ids = [this] {
            QList<QUuid> listed;
            for (const GifHistoryItem& kept : m_history->store.loadItems()) {
                listed << kept.id;
            }
            return listed;
        };
        m_controller->show(path, item.id);
        PreviewPanelView* panel = m_controller->panel();
        panel->deleteButton()->click();
        QVERIFY(!QFile::exists(path));
        QCOMPARE(ids(), QList<QUuid>{newer.id});
        QCOMPARE(panel->shownRow(), Row::notice);
        QCOMPARE(panel->rowText(), QStringLiteral("Moved to Trash"));
        QVERIFY(panel->cancelButton()->isVisible());
        panel->cancelButton()->click();
        QVERIFY(QFile::exists(path));
        QCOMPARE(ids(), (QList<QUuid>{newer.id, item.id}));
        QCOMPARE(panel->shownRow(), Row::ready);
        panel->deleteButton()->click();
        m_clock->advance(PreviewPanelController::noticeInterval);
        QVERIFY(!m_controller->panel());
        const QString trash = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
                              QStringLiteral("/Trash/files/") + item.filename;
        QVERIFY2(QFile::exists(trash), qPrintable(trash));
        QCOMPARE(ids(), QList<QUuid>{newer.id});
    }
    // Fit: the sizes and "Trim and more…" under the button. A fit runs in the row and holds the
    // panel; it ends in a new entry shown in the panel, or in a notice that changes nothing. After
    // a recording the fitted GIF replaces it; Cancel leaves everything as it was.
    void fitMakesANewEntryOrSaysWhyNot()
    {
        using Row = PreviewPanelState::Row;
        const GifHistoryItem item = m_history->keep(QSize(64, 48), 30);
        const QString path = m_history->store.filePath(item);
        m_controller->show(path, item.id);
        PreviewPanelView* panel = m_controller->panel();
        QStringList choices;
        for (QAction* action : panel->fitMenu()->actions()) {
            choices << (action->isSeparator() ? QStringLiteral("--") : action->text());
        }
        QCOMPARE(choices, (QStringList{QStringLiteral("Under 15 MB (X)"),
                                       QStringLiteral("Under 10 MB (GitHub, Discord)"),
                                       QStringLiteral("Under 5 MB"), QStringLiteral("Under 1 MB"),
                                       QStringLiteral("--"), QStringLiteral("Trim and more\u2026")}));
        panel->fitMenu()->actions().last()->trigger();
        QCOMPARE(m_trimmed, QStringList{path});

        panel->fitMenu()->actions()[3]->trigger();
        QCOMPARE(panel->shownRow(), Row::working);
        QVERIFY2(panel->rowText().startsWith(QStringLiteral("Fitting under 1 MB")),
                 qPrintable(panel->rowText()));
        QVERIFY(panel->cancelButton()->isVisible());
        panel->onDragging(false);        // a drag out that ends meanwhile starts no minute either
        QCOMPARE(m_clock->pending(), 0); // the panel stays while it works
        QTRY_COMPARE(panel->shownRow(), Row::notice);
        QCOMPARE(panel->rowText(), QStringLiteral("Already under 1 MB: ") + fileSizeLabel(item.fileSize));
        m_clock->advance(PreviewPanelController::noticeInterval);
        QCOMPARE(panel->shownRow(), Row::ready);
        QVERIFY(closesIn(56s)); // its minute started again when the notice came

        m_controller->show(path, item.id);
        m_controller->fitUnder(path, 100);
        QTRY_COMPARE(m_controller->panel()->shownRow(), Row::notice);
        const QString notice = m_controller->panel()->rowText();
        QVERIFY2(notice.startsWith(QStringLiteral("Can't fit under 100 bytes: ")) &&
                     notice.endsWith(QStringLiteral(" at the smallest")),
                 qPrintable(notice));

        // A GIF cut short is no GIF "already under" the size, however small.
        QFile whole(path);
        QVERIFY(whole.open(QIODevice::ReadOnly));
        const QString cut = m_history->dir.filePath(QStringLiteral("cut.gif"));
        QFile half(cut);
        QVERIFY(half.open(QIODevice::WriteOnly) && half.write(whole.read(whole.size() / 2)) > 0);
        half.close();
        m_controller->show(cut, std::nullopt);
        m_controller->fitUnder(cut, 1000000);
        QTRY_COMPARE(m_controller->panel()->shownRow(), Row::notice);
        QCOMPARE(m_controller->panel()->rowText(), QStringLiteral("Can't fit this GIF"));
        QVERIFY2(m_printed.constLast().startsWith(QStringLiteral("Fit error: ")) &&
                     m_printed.constLast().contains(QStringLiteral("cut short")),
                 qPrintable(m_printed.constLast()));
        QCOMPARE(m_history->store.loadItems().size(), 1);

        const auto fitsUnder = [&](qint64 budget, bool replacing, GifHistoryItem& made) {
            if (replacing) {
                m_controller->fitShown(budget, true);
            } else {
                m_controller->fitUnder(path, budget);
            }
            QTRY_VERIFY(!m_controller->runningJob() && m_controller->currentHistoryItemID() != item.id);
            made = m_history->store.loadItems().first();
            QCOMPARE(m_controller->currentHistoryItemID(), made.id);
            QVERIFY(made.fileSize <= budget);
            QCOMPARE(m_controller->panel()->preview()->badge(), fileSizeLabel(made.fileSize));
        };
        GifHistoryItem fitted;
        fitsUnder(item.fileSize - 1, false, fitted);
        QVERIFY(!QTest::currentTestFailed());
        QCOMPARE(m_history->store.loadItems().size(), 2);
        QVERIFY(QFile::exists(path));

        // Cancel: the work stops and nothing changes. (The source is a pipe that holds the fit at
        // its start until it is fed.)
        m_controller->show(path, item.id);
        const QString pipe = m_history->dir.filePath(QStringLiteral("pipe.gif"));
        QCOMPARE(mkfifo(QFile::encodeName(pipe).constData(), 0600), 0);
        m_controller->fitUnder(pipe, 100);
        m_controller->panel()->cancelButton()->click();
        QFile feed(pipe);
        QVERIFY(feed.open(QIODevice::WriteOnly));
        feed.write(testGif(QSize(64, 48), 30));
        feed.close();
        QTRY_VERIFY(!m_controller->runningJob());
        QCOMPARE(m_controller->panel()->shownRow(), Row::ready);
        QCOMPARE(m_history->store.loadItems().size(), 2);

        // After a recording: the fitted GIF takes the recording's place.
        GifHistoryItem replaced;
        fitsUnder(item.fileSize - 1, true, replaced);
        QVERIFY(!QTest::currentTestFailed());
        const QList<GifHistoryItem> items = m_history->store.loadItems();
        QCOMPARE(items.size(), 2);
        QCOMPARE(items[0].id, replaced.id);
        QCOMPARE(items[1].id, fitted.id);
        QVERIFY(!QFile::exists(path));
    }
};

QTEST_MAIN(PreviewPanelTest)
#include "tst_previewpanel.moc"
