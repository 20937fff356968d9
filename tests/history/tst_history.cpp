// The history: the store on disk (what it keeps, what it reads back from damaged or hand-edited
// files, what it recovers after an interruption) and the window that shows it, on a real X server.
#include "../fakes/PanelFakes.h"
#include "history/GifHistoryStore.h"
#include "history/HistoryFile.h"
#include "history/HistoryGridView.h"
#include "history/HistoryPanelController.h"
#include "history/HistoryPanelView.h"
#include "history/TrimWindow.h"
#include "recording/GifWriter.h"
#include "support/GifReaders.h"

#include "recording/GifRecoder.h"
#include <QApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>
#include <QScrollBar>
#include <QTemporaryDir>

#include <QComboBox>
#include <QMenu>
#include <QPushButton>
#include <QSlider>
#include <QTest>

#include <ctime>
#include <numeric>

using namespace vantalo;
using namespace vantalo::test;

namespace {
QByteArray readAll(const QString& path)
{
    QFile file(path);
    file.open(QIODevice::ReadOnly);
    return file.readAll();
}
} // namespace

class TestHistory : public QObject
{
    Q_OBJECT

    QStringList m_printed;
    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<GifHistoryStore> m_store;

    std::unique_ptr<GifHistoryStore> storeAt(const QString& base)
    {
        return std::make_unique<GifHistoryStore>(base, [this](const QString& line) { m_printed << line; });
    }

    std::unique_ptr<TemporaryHistory> m_history;
    std::unique_ptr<HistoryPanelController> m_controller;

    void keep(int count)
    {
        for (int i = 0; i < count; ++i) {
            m_history->keep(QSize(160, 90), 2);
        }
    }

    HistoryPanelView* view() const { return m_controller->window()->findChild<HistoryPanelView*>(); }

private Q_SLOTS:
    void init()
    {
        m_printed.clear();
        m_dir = std::make_unique<QTemporaryDir>();
        m_store = storeAt(m_dir->filePath(QStringLiteral("Vantalo")));
        m_history = std::make_unique<TemporaryHistory>();
        m_controller = std::make_unique<HistoryPanelController>(
            m_history->store, [] { return QStringLiteral("Shift+Ctrl+R"); });
    }
    void cleanup() { m_controller.reset(); }

    void addingUpdatingAndDeleting()
    {
        const QString first = writeFile(m_dir->filePath(QStringLiteral("vantalo_1.gif")), "GIF89a one");
        const auto a = m_store->addGif(first);
        QVERIFY(a);
        QVERIFY(!QFile::exists(first));
        QCOMPARE(readAll(m_store->filePath(*a)), QByteArray("GIF89a one"));
        QCOMPARE(QFileInfo(m_store->filePath(*a)).path(), m_dir->filePath(QStringLiteral("Vantalo/gifs")));
        QCOMPARE(a->fileSize, 10);

        const auto b =
            m_store->addGif(writeFile(m_dir->filePath(QStringLiteral("vantalo_2.gif")), "GIF89a two"));
        QVERIFY(b);

        // The file as another reader sees it (members in their order, times in whole seconds, the
        // GIF under its UUID name, readable by the user alone): the end-to-end flow.
        const QByteArray json = readAll(m_store->metadataPath());
        const QList<GifHistoryItem> items = m_store->loadItems();
        QCOMPARE(items.size(), 2);
        QCOMPARE(items[0].id, b->id);
        QCOMPARE(items[0].createdAt, b->createdAt); // whole seconds survive the round trip
        QCOMPARE(items[0].createdAt.time().msec(), 0);

        // A GIF that cannot be read fails with the file system's reason and changes nothing.
        const auto missing = m_store->addGif(m_dir->filePath(QStringLiteral("nope.gif")));
        QVERIFY(!missing);
        QVERIFY(!missing.error().description.isEmpty());
        QCOMPARE(readAll(m_store->metadataPath()), json);

        m_store->updateUploadURL(QUuid::createUuid(), QUrl(QStringLiteral("https://x.example/y.gif")));
        QCOMPARE(readAll(m_store->metadataPath()), json); // unknown id: byte for byte the same

        m_store->updateUploadURL(a->id, QUrl(QStringLiteral("https://cdn.example.com/gifs/a.gif")));
        QCOMPARE(m_store->loadItems().at(1).uploadURL,
                 QUrl(QStringLiteral("https://cdn.example.com/gifs/a.gif")));

        // Deleting an item whose file is already gone still removes its entry.
        QFile::remove(m_store->filePath(*b));
        m_store->deleteItem(*b);
        QCOMPARE(m_store->loadItems().size(), 1);
        m_store->deleteItem(*a);
        QVERIFY(!QFile::exists(m_store->filePath(*a)));
        QVERIFY(m_store->loadItems().isEmpty());
        QCOMPARE(QJsonDocument::fromJson(readAll(m_store->metadataPath())).array().size(), 0);
    }

    void readingRules()
    {
        // One entry; each row changes a member or two.
        const auto entry = [](const char* filename, const char* createdAt = "2024-05-01T09:30:12Z",
                              const char* more = R"("fileSize":3)") {
            return QByteArray(R"({"id":"6B1F0C2A-9D4E-4A7B-8C3D-2E5F7A9B1C0D","filename":")") + filename +
                   R"(","createdAt":")" + createdAt + "\"," + more + "}";
        };
        const QByteArray good = entry("vantalo_x.gif");
        const struct
        {
            QByteArray json;
            const char* timeZone;
            int count;
        } rows[] = {
            {"[" + good + "]", "UTC", 1},
            {"[" + entry("f.gif", "2024-05-01T09:30:12Z", R"("fileSize":3,"uploadURL":null,"extra":true)") +
                 "]",
             "UTC", 1},
            // Times in the hour that daylight saving skips on the machine's clock are ordinary UTC times.
            {"[" + entry("f.gif", "2024-03-31T02:30:00Z") + "]", "Europe/Berlin", 1},
            {"[" + entry("f.gif", "2024-03-10T02:30:00Z") + "]", "America/New_York", 1},
            {"[" + entry("clip%2F1%1.gif") + "]", "UTC", 1}, // format characters in a name
            // Entries that cannot be used are left out; the others stay.
            {"[" + good + "," + entry(R"(..\/..\/..\/.bashrc)") + "," + entry("..") + "]", "UTC", 1},
            {"[" + good + "," + entry("f.gif", "2024-05-01T09:30:12Z", R"("fileSize":1e300)") + "]", "UTC",
             1},
            {"[" + good + "," + entry(R"(a\ud800.gif)") + "]", "UTC", 1}, // a lone surrogate
            // What the format forbids makes the whole file unreadable.
            {"[" + entry("f.gif", "2024-05-01T09:30:12.5Z") + "]", "UTC", 0},
            {"[" + entry("f.gif", "2023-02-29T09:30:12Z") + "]", "UTC", 0}, // no such day
            {"[" + good +
                 R"(,{"id":"x","filename":"f.gif","createdAt":"2024-05-01T09:30:12Z","fileSize":3}])",
             "UTC", 0},
            {R"({"items":[]})", "UTC", 0},
            {"[" + entry("f.gif", "2024-05-01T09:30:12Z", R"("size":3)") + "]", "UTC", 0}, // no fileSize
            {"[{,", "UTC", 0},
        };
        const auto restore = qScopeGuard([] {
            qunsetenv("TZ");
            tzset();
        });
        for (const auto& row : rows) {
            qputenv("TZ", row.timeZone);
            tzset();
            QVERIFY(!writeFile(m_store->metadataPath(), row.json).isEmpty());
            const QList<GifHistoryItem> items = m_store->loadItems();
            QVERIFY2(items.size() == row.count, row.json.constData());
            // What is read is written back exactly, and reads back the same.
            const auto again = decodeHistory(encodeHistory(items));
            QVERIFY(again);
            QCOMPARE(again->ignored, 0);
            QVERIFY(again->items == items);
        }
    }

    void anInterruptedAddIsRecoveredAtStart()
    {
        const auto gif = [](int n) { return testGif(QSize(n, 1), 1); };
        const QString base = m_dir->filePath(QStringLiteral("Vantalo"));
        QTemporaryDir temporary;
        const auto listed =
            m_store->addGif(writeFile(temporary.filePath(QStringLiteral("vantalo_1.gif")), gif(1)));
        QVERIFY(listed);
        // Copied into the GIF directory, never listed; and one cut short there.
        const QString copied = QStringLiteral("vantalo_0F1E2D3C-4B5A-4978-8695-A4B3C2D1E0F9.gif");
        writeFile(m_dir->filePath(QStringLiteral("Vantalo/gifs/") + copied), gif(2));
        writeFile(
            m_dir->filePath(QStringLiteral("Vantalo/gifs/vantalo_1E2D3C4B-5A49-4786-95A4-B3C2D1E0F9A8.gif")),
            gif(3).chopped(1));
        // Still in the temporary directory: a recording from 2023, and the original of a listed copy.
        writeFile(temporary.filePath(QStringLiteral("vantalo_1700000000.gif")), gif(4));
        writeFile(temporary.filePath(QStringLiteral("vantalo_1700000001.gif")), gif(1));
        writeFile(temporary.filePath(QStringLiteral("other.gif")), gif(5));
        // What an interrupted save leaves, and what must stay.
        writeFile(m_dir->filePath(QStringLiteral("Vantalo/history.json.aB3xZ9")), "[");
        writeFile(m_dir->filePath(QStringLiteral("Vantalo/history.json.corrupt-20240101-000000")), "[");

        m_store->recover(temporary.path());
        const QList<GifHistoryItem> items = m_store->loadItems();
        QCOMPARE(items.size(), 3);
        QCOMPARE(items[0].id, listed->id);
        QCOMPARE(items[1].filename, copied);
        QCOMPARE(items[1].fileSize, gif(2).size());
        QCOMPARE(items[2].createdAt, QDateTime::fromSecsSinceEpoch(1700000000, Qt::UTC));
        QCOMPARE(readAll(m_store->filePath(items[2])), gif(4));
        QCOMPARE(QDir(temporary.path()).entryList(QDir::Files), QStringList{QStringLiteral("other.gif")});
        QCOMPARE(QDir(base).entryList({QStringLiteral("history.json*")}, QDir::Files),
                 (QStringList{QStringLiteral("history.json"),
                              QStringLiteral("history.json.corrupt-20240101-000000")}));
        QCOMPARE(m_printed, QStringList{QStringLiteral("Recovered 2 GIFs missing from the history")});

        // Nothing left to recover: nothing written.
        const QByteArray json = readAll(m_store->metadataPath());
        m_store->recover(temporary.path());
        QCOMPARE(readAll(m_store->metadataPath()), json);
        QCOMPARE(m_printed.size(), 1);
    }

    // What a change finds wrong with the file is kept beside it before anything is written, and a
    // name outside the GIF directory is never touched.
    void aFileWithProblemsIsKeptAsideBeforeAChange()
    {
        const struct
        {
            QByteArray json;
            QString aside;
            QString line;
        } rows[] = {
            {"[{\"id\": \"truncated", QStringLiteral("corrupt"),
             QStringLiteral("The GIF history file could not be read")},
            {R"([{"id":"6B1F0C2A-9D4E-4A7B-8C3D-2E5F7A9B1C0D","filename":"..\/..\/outside.gif",)"
             R"("createdAt":"2024-05-01T09:30:12Z","fileSize":7}])",
             QStringLiteral("skipped"), QStringLiteral("1 of the GIF history file's entries")},
        };
        for (const auto& [json, aside, line] : rows) {
            init();
            const QString outside = writeFile(m_dir->filePath(QStringLiteral("outside.gif")), "keep me");
            writeFile(m_dir->filePath(QStringLiteral("Vantalo/history.json")), json);
            QVERIFY(m_store->loadItems().isEmpty());
            QVERIFY(m_printed.isEmpty()); // reading alone changes nothing

            m_store->deleteItem(
                GifHistoryItem{QUuid::createUuid(), QStringLiteral("../../outside.gif"), {}, 7, {}});
            QVERIFY(QFile::exists(outside));
            QVERIFY(m_store->addGif(writeFile(m_dir->filePath(QStringLiteral("n.gif")), "GIF89a")));
            const QStringList keptAside = QDir(m_dir->filePath(QStringLiteral("Vantalo")))
                                              .entryList({QStringLiteral("history.json.") + aside + '*'});
            QCOMPARE(keptAside.size(), 1);
            QCOMPARE(readAll(m_dir->filePath(QStringLiteral("Vantalo/") + keptAside.first())), json);
            QCOMPARE(m_printed.size(), 1);
            QVERIFY2(m_printed.first().startsWith(line) && m_printed.first().contains(keptAside.first()),
                     qPrintable(m_printed.first()));
            QCOMPARE(m_store->loadItems().size(), 1);
        }
    }

    void aFullDiskLeavesTheOldFileWhole()
    {
        // A 64 KiB file system, filled up after the first GIF.
        const QString mountPoint = m_dir->filePath(QStringLiteral("small"));
        QDir().mkpath(mountPoint);
        if (QProcess::execute(QStringLiteral("mount"),
                              {QStringLiteral("-t"), QStringLiteral("tmpfs"), QStringLiteral("-o"),
                               QStringLiteral("size=64k"), QStringLiteral("tmpfs"), mountPoint}) != 0) {
            QSKIP("cannot mount a small file system here (needs root)");
        }
        const auto unmount = qScopeGuard([&] { QProcess::execute(QStringLiteral("umount"), {mountPoint}); });
        auto store = storeAt(mountPoint + QStringLiteral("/Vantalo"));
        QVERIFY(store->addGif(writeFile(m_dir->filePath(QStringLiteral("1.gif")), QByteArray(1000, 'g'))));
        const QByteArray before = readAll(store->metadataPath());
        QFile filler(mountPoint + QStringLiteral("/filler"));
        QVERIFY(filler.open(QIODevice::WriteOnly));
        while (filler.write(QByteArray(4096, 'x')) == 4096 && filler.flush()) {
        }
        filler.close();

        // The GIF itself no longer fits: a clear failure, and the history is as it was.
        const auto failed =
            store->addGif(writeFile(m_dir->filePath(QStringLiteral("2.gif")), QByteArray(20000, 'g')));
        QVERIFY(!failed);
        QVERIFY(QFile::exists(m_dir->filePath(QStringLiteral("2.gif")))); // the user's GIF is still there
        QCOMPARE(readAll(store->metadataPath()), before);

        // A metadata rewrite that cannot be completed leaves the old file whole.
        store->updateUploadURL(store->loadItems().first().id,
                               QUrl(QStringLiteral("https://x.example/") + QString(3000, QLatin1Char('a'))));
        QCOMPARE(readAll(store->metadataPath()), before);
    }

    void theGridFollowsTheWidth()
    {
        // Columns of 140 to 200 points, centred: the same margin on both sides, at least 16.
        for (const double width : {100.0, 320.0, 324.0, 480.0, 1000.0}) {
            const HistoryGridLayout layout = HistoryGridLayout::forWidth(width, 150);
            QVERIFY(layout.columns == 1 || (layout.columnWidth >= 140 && layout.columnWidth <= 200));
            QCOMPARE(layout.left, width - layout.cellRect(layout.columns - 1).right());
            QVERIFY(layout.left >= 16);
        }
        QCOMPARE(HistoryGridLayout::forWidth(1000, 150).columns, 6);
        // The spacing between cells belongs to no cell, and rows in it are not in view.
        const HistoryGridLayout layout = HistoryGridLayout::forWidth(480, 150);
        QCOMPARE(layout.visibleRange(170, 330, 100), std::make_pair(3, 6));
        QCOMPARE(layout.cellAt(QPointF(layout.left + 145, 50), 7), -1);
        QCOMPARE(layout.cellAt(layout.cellRect(4).center(), 4), -1);
    }

    void theWindowEmptyAndAgain()
    {
        m_controller->show();
        QWidget* first = m_controller->window();
        QCOMPARE(first->windowTitle(), QStringLiteral("GIF History"));
        QCOMPARE(first->size(), QSize(480, 400));
        QCOMPARE(first->minimumSize(), QSize(320, 300));
        QVERIFY(view()->showsEmptyState());
        QCOMPARE(view()->emptyHint(), QStringLiteral("Record a GIF with Shift+Ctrl+R"));

        // A GIF kept while the window is open (a recording, a fit, a trim) shows in it at once.
        keep(1);
        QVERIFY(!view()->showsEmptyState());
        QCOMPARE(m_controller->viewModel()->items().size(), 1);
        // Show brings the open window forward; a closed one is made afresh.
        m_controller->show();
        QCOMPARE(m_controller->window(), first);
        first->close();
        m_controller->show();
        QVERIFY(m_controller->window() != first);
        QCOMPARE(m_controller->viewModel()->items().size(), 1);
        keep(1);
        QCOMPARE(m_controller->viewModel()->items().size(), 2);

        // Each cell's menu acts on its own GIF: the sizes to fit under, the trim window, copy,
        // and delete.
        const QList<GifHistoryItem> items = m_controller->viewModel()->items();
        QStringList asked;
        m_controller->onFitItem = [&](const GifHistoryItem& item, qint64 budget) {
            asked << QStringLiteral("fit %1 %2").arg(item.filename).arg(budget);
        };
        m_controller->onTrimItem = [&](const GifHistoryItem& item) {
            asked << QStringLiteral("trim ") + item.filename;
        };
        m_controller->onCopyItem = [&](const GifHistoryItem& item) {
            asked << QStringLiteral("copy ") + item.filename;
        };
        QMenu* menu = view()->grid()->makeContextMenu(1);
        QStringList titles;
        for (QAction* action : menu->actions()) {
            titles << (action->isSeparator() ? QStringLiteral("--") : action->text());
        }
        QCOMPARE(titles, (QStringList{QStringLiteral("Fit"), QStringLiteral("Trim and more\u2026"),
                                      QStringLiteral("--"), QStringLiteral("Open"), QStringLiteral("Copy"),
                                      QStringLiteral("--"), QStringLiteral("Delete")}));
        QCOMPARE(menu->actions()[0]->menu()->actions().size(), fitPresets().size());
        menu->actions()[0]->menu()->actions()[3]->trigger();
        menu->actions()[1]->trigger();
        menu->actions()[4]->trigger();
        QCOMPARE(asked, (QStringList{QStringLiteral("fit %1 1000000").arg(items[1].filename),
                                     QStringLiteral("trim ") + items[1].filename,
                                     QStringLiteral("copy ") + items[1].filename}));
        menu->actions()[6]->trigger();
        QCOMPARE(m_history->store.loadItems(), QList<GifHistoryItem>{items[0]});
        QCOMPARE(m_controller->viewModel()->items(), QList<GifHistoryItem>{items[0]});
    }

    // The suggested span leaves out blank frames at the start (a window not painted yet), unless
    // the GIF goes blank like that again or is blank throughout.
    void blankStartsAreNotSuggested()
    {
        const std::optional<QRgb> w = qRgb(255, 255, 255);
        const std::optional<QRgb> picture;
        const struct
        {
            QList<std::optional<QRgb>> flat;
            QList<bool> changed;
            FrameSpan span;
        } rows[] = {
            {{w, w, picture, picture, picture}, {true, false, true, true, true}, {2, 5}},
            {{w, picture, picture, w, picture}, {true, true, true, true, true}, {0, 5}},
            {{w, w, w}, {true, false, false}, {0, 3}},
        };
        for (const auto& [flat, changed, span] : rows) {
            GifTimeline timeline;
            timeline.flat = flat;
            timeline.changed = changed;
            timeline.delays = QList<int>(flat.size(), 7);
            QCOMPARE(timeline.suggestedSpan(), span);
        }
    }

    // The trim window: opens on the suggested span (a still start and end left out), plays it,
    // moves the handles by key and by drag, estimates the result, and saves exactly the kept
    // frames with their delays, at the size asked for.
    void theTrimWindow()
    {
        // 10 still frames, 10 that change, 10 still again; a GIF of pixel doubles.
        QList<EncodedFrame> encoded;
        for (int f = 0; f < 30; ++f) {
            const int shade = std::clamp(f - 9, 0, 10);
            const std::vector<quint8> indices(size_t(40 * 30), 1);
            encoded.append(EncodedFrame{QRect(0, 0, 40, 30),
                                        {qRgb(0, 0, 0), qRgb(20 * shade, 90, 200)},
                                        -1,
                                        2,
                                        lzwCompress(indices, 2)});
        }
        const QList<int> delays = gifDelays(30, 1.0 / 15);
        const QString source = writeFile(m_history->dir.filePath(QStringLiteral("trim.gif")),
                                         assembleGif(QSize(40, 30), encoded, delays));
        TrimWindow window(source, QStringLiteral("today"));
        QStringList saved;
        window.onSaved = [&](const QString& path) { saved << path; };
        window.show();
        QCOMPARE(window.windowTitle(), QStringLiteral("Trim \u2014 today"));
        QTRY_VERIFY(window.isLoaded());
        QCOMPARE(window.span(), (FrameSpan{9, 20}));
        QVERIFY(window.isPlaying());
        const auto at = [&](int frame) { return TrimWindow::timeLabel(window.timeline()->startOf(frame)); };
        QCOMPARE(window.timesText(), QStringLiteral("Start %1   End %2   Length 0.73 s").arg(at(9), at(20)));
        QTRY_VERIFY(window.estimateText().startsWith(QStringLiteral("About ")));

        QTest::keyClick(&window, Qt::Key_Space);
        QVERIFY(!window.isPlaying());
        QTest::keyClick(&window, Qt::Key_Right);
        QTest::keyClick(&window, Qt::Key_Right, Qt::ShiftModifier);
        QCOMPARE(window.span(), (FrameSpan{10, 21}));
        QCOMPARE(window.shownFrame(), 20); // the end handle's last kept frame, as it moved
        QTest::keyClick(&window, Qt::Key_Left);
        QCOMPARE(window.span(), (FrameSpan{9, 21}));

        // Drags reach the ends, and no further.
        TrimTimelineView* strip = window.timelineView();
        const int y = strip->height() / 2;
        QTest::mousePress(strip, Qt::LeftButton, {},
                          QPoint(strip->handleX(TrimTimelineView::Handle::end) + 4, y));
        QTest::mouseMove(strip, QPoint(strip->width() + 50, y));
        QTest::mouseRelease(strip, Qt::LeftButton, {}, QPoint(strip->width() + 50, y));
        QTest::mousePress(strip, Qt::LeftButton, {},
                          QPoint(strip->handleX(TrimTimelineView::Handle::start) - 4, y));
        QTest::mouseMove(strip, QPoint(strip->handleX(TrimTimelineView::Handle::start) - 4 - 40, y));
        QTest::mouseMove(strip, QPoint(-50, y));
        QTest::mouseRelease(strip, Qt::LeftButton, {}, QPoint(-50, y));
        QCOMPARE(window.span(), (FrameSpan{0, 30}));

        // A change of the output estimates again; Save writes the kept frames.
        window.setSpan({5, 25});
        window.lossySlider()->setValue(40);
        QCOMPARE(window.estimateText(), QStringLiteral("Estimating\u2026"));
        QTRY_VERIFY(window.estimateText().startsWith(QStringLiteral("About ")));
        window.lossySlider()->setValue(0);
        QCOMPARE(window.sizeBox()->itemText(1),
                 QStringLiteral("1\u00d7 \u2014 the screen's own pixels (20 \u00d7 15)"));
        window.sizeBox()->setCurrentIndex(1);
        QTRY_VERIFY(window.estimateText().startsWith(QStringLiteral("About ")));
        QTest::keyClick(&window, Qt::Key_Return);
        QVERIFY(window.savingJob() && !window.saveButton()->isEnabled());
        QVERIFY(window.estimateText().startsWith(QStringLiteral("About "))); // a save is no new output
        QTRY_COMPARE(saved.size(), 1);
        QVERIFY(!window.isVisible());
        QFile made(saved[0]);
        QVERIFY(made.open(QIODevice::ReadOnly));
        const auto read = testing::readWithEveryReader(made.readAll());
        made.remove(); // handed over: the one it is given keeps it, or removes it
        QVERIFY(read);
        // Shown as the source showed it: a frame that changes nothing adds its time to the one
        // before (frames 5–9 are one still picture, 20–24 the same as 19).
        const auto sum = [&](int from, int to) {
            return std::accumulate(delays.begin() + from, delays.begin() + to, 0);
        };
        QList<int> shown{sum(5, 10)};
        for (int f = 10; f < 19; ++f) {
            shown << delays[f];
        }
        shown << sum(19, 25);
        QCOMPARE(read->delays, shown);
        QCOMPARE(read->frames.first().size(), QSize(20, 15));

        // A file that is not a GIF says so, and nothing can be saved.
        TrimWindow broken(writeFile(m_history->dir.filePath(QStringLiteral("broken.gif")), "nope"),
                          QString());
        QTRY_VERIFY(broken.statusText().contains(QStringLiteral("is not a GIF")));
        QVERIFY(!broken.saveButton()->isEnabled());
    }

    void onlyCellsInViewDecode()
    {
        keep(60);
        m_controller->show();
        QVERIFY(QTest::qWaitForWindowExposed(m_controller->window()));
        HistoryGridView* grid = view()->grid();
        QCOMPARE(grid->gridLayout().columns, 3);
        const int firstScreen = grid->liveThumbnailCount();
        QVERIFY2(firstScreen >= 3 && firstScreen <= 9, qPrintable(QString::number(firstScreen)));
        grid->verticalScrollBar()->setValue(grid->verticalScrollBar()->maximum());
        QCOMPARE(grid->liveThumbnailCount(), firstScreen);
        m_controller->window()->resize(320, 400);
        QTRY_COMPARE(grid->gridLayout().columns, 1);
        QVERIFY(grid->liveThumbnailCount() <= 4); // one column, at most four rows partly in view
    }
};

QTEST_MAIN(TestHistory)
#include "tst_history.moc"
