// The capture flow over stand-ins for the screen, the overlays and the encoder: the coordinator's
// states and what it asks of each collaborator, and the application around it (the menu, the
// history and the preview it hands GIFs to, the preferences, the shortcut's refusal).
#include "../fakes/CaptureFakes.h"

#include "../fakes/MemorySecretStore.h"
#include "app/AppDelegate.h"
#include "app/SingleInstance.h"
#include "settings/HotkeySettingsNotifier.h"
#include "settings/KeychainStore.h"
#include "settings/SettingsKeys.h"
#include "settings/ShortcutSettings.h"
#include "settings/UserDefaults.h"

#include <QAbstractButton>
#include <QApplication>
#include <QFileInfo>
#include <QLocalServer>
#include <QLocalSocket>
#include <QPainter>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>
#include <QThreadPool>

#include <semaphore>

using namespace vantalo;
using namespace vantalo::testing;

namespace {

class FakeHistory final : public HistoryStore
{
public:
    std::expected<GifHistoryItem, Failure> addGif(const QString& gifPath) override
    {
        added << gifPath;
        if (failure) {
            return std::unexpected(*failure);
        }
        return GifHistoryItem{QUuid::createUuid(), QStringLiteral("kept.gif"), {}, 10, {}};
    }
    QString filePath(const GifHistoryItem& item) const override
    {
        return QStringLiteral("/history/") + item.filename;
    }

    QStringList added;
    std::optional<Failure> failure;
};

struct Shown
{
    QString path;
    std::optional<QUuid> id;
};

class FakePreview final : public PreviewPresenter
{
public:
    void show(const QString& gifPath, const std::optional<QUuid>& historyItemId) override
    {
        shown.push_back({gifPath, historyItemId});
    }
    void dismiss() override { ++dismissed; }
    void fitShown(qint64 budget, bool replacing) override
    {
        fitted.append(replacing ? budget : -budget);
        working = true;
    }
    bool isWorking() const override { return working; }
    bool working = false;
    void copyShown() override { ++copied; }
    void tell(const QString& notice) override { told << notice; }
    std::vector<Shown> shown;
    QStringList told;
    int copied = 0;
    int dismissed = 0;
    QList<qint64> fitted;
};

class FakeHistoryWindow final : public HistoryWindowPresenter
{
public:
    void show() override {}
};

class FakeTrim final : public TrimPresenter
{
public:
    void open(const QString& path) override { opened << path; }
    QStringList opened;
};

// The menu as a user reads it: titles, shortcuts, disabled lines, separators as "--".
QStringList menuLines(QMenu* menu)
{
    Q_EMIT menu->aboutToShow();
    QStringList lines;
    for (QAction* action : menu->actions()) {
        if (action->isSeparator()) {
            lines << QStringLiteral("--");
            continue;
        }
        QString line = action->text();
        if (!action->shortcut().isEmpty()) {
            line += QStringLiteral(" [") + action->shortcut().toString(QKeySequence::NativeText) +
                    QLatin1Char(']');
        }
        if (!action->isEnabled()) {
            line += QStringLiteral(" (disabled)");
        }
        lines << line;
    }
    return lines;
}

QAction* menuAction(QMenu* menu, const QString& title)
{
    Q_EMIT menu->aboutToShow();
    for (QAction* action : menu->actions()) {
        if (action->text() == title) {
            return action;
        }
    }
    return nullptr;
}

} // namespace

class TestCapture : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    std::unique_ptr<UserDefaults> m_defaults;
    std::unique_ptr<CoordinatorRig> m_rig;
    std::unique_ptr<CaptureCoordinator> m_c;

    const DisplayInfo m_primary{QStringLiteral("primary"), QRectF(0, 0, 1920, 1080)};
    const DisplayInfo m_secondary{QStringLiteral("right"), QRectF(1920, 200, 1280, 800)};

    // The application, when a test starts it: it takes the coordinator.
    HotkeySettingsNotifier m_notifier;
    MemorySecretStore m_secrets;
    KeychainStore m_keychain{m_secrets};
    FakeHistory m_history;
    FakePreview* m_preview = nullptr;
    FakeHistoryWindow* m_historyWindow = nullptr;
    FakeTrim* m_trim = nullptr;
    QStringList m_printed;
    int m_quits = 0;
    std::unique_ptr<AppDelegate> m_delegate;

    void startApplication()
    {
        auto preview = std::make_unique<FakePreview>();
        m_preview = preview.get();
        auto historyWindow = std::make_unique<FakeHistoryWindow>();
        m_historyWindow = historyWindow.get();
        auto trim = std::make_unique<FakeTrim>();
        m_trim = trim.get();
        m_delegate = std::make_unique<AppDelegate>(
            AppServices{*m_defaults, m_keychain, m_notifier, m_rig->permission, m_history,
                        [this](const QString& line) { m_printed << line; }, [this] { ++m_quits; }},
            std::move(m_c), std::move(preview), std::move(historyWindow), std::move(trim));
        m_delegate->setupApplication();
    }
    CaptureCoordinator& coordinator() { return m_delegate ? m_delegate->captureCoordinator() : *m_c; }

    void selectRegion(const QRectF& region = QRectF(0, 0, 400, 300), const DisplayInfo& display = {})
    {
        coordinator().beginRegionSelection();
        m_rig->selector->onRegionSelected(region, display.name.isEmpty() ? m_primary : display);
    }
    void pressToolbar(const std::function<void()>& button)
    {
        button();
        QCoreApplication::processEvents();
    }
    // Start pressed and the recorder's answer taken.
    void startAndWait()
    {
        m_rig->toolbar->onStart();
        QTRY_VERIFY(coordinator().state() != CaptureState::readyToRecord);
    }
    void selectAndStart(const QRectF& region = QRectF(0, 0, 300, 300), const DisplayInfo& display = {})
    {
        selectRegion(region, display);
        startAndWait();
    }

private Q_SLOTS:
    void init()
    {
        m_defaults = std::make_unique<UserDefaults>(m_dir.filePath(QStringLiteral("settings.ini")));
        m_rig = std::make_unique<CoordinatorRig>();
        m_c = m_rig->make(*m_defaults, m_dir.path());
        m_history.failure.reset();
        m_history.added.clear();
        m_printed.clear();
        m_quits = 0;
    }
    void cleanup()
    {
        m_delegate.reset();
        m_c.reset();
        m_rig.reset();
        QFile::remove(m_dir.filePath(QStringLiteral("settings.ini")));
    }

    void selectThenCancel()
    {
        m_c->beginRegionSelection();
        QCOMPARE(m_c->state(), CaptureState::selectingRegion);
        QVERIFY(m_rig->journal.has(QStringLiteral("selector.show")));

        m_rig->selector->onCancelled();
        QCOMPARE(m_c->state(), CaptureState::idle);
        QCOMPARE(m_rig->reported, QList<bool>{false});
        for (const char* hidden : {"selector.dismiss", "toolbar.hide", "border.hide", "preview.hide"}) {
            QVERIFY2(m_rig->journal.has(QString::fromLatin1(hidden)), hidden);
        }

        // The menu entry acts only when idle.
        m_c->beginRegionSelection();
        m_c->beginRegionSelection();
        QCOMPARE(m_rig->journal.count(QStringLiteral("selector.show")), 2);

        // A cancel from the region preview ends the capture the same way.
        m_rig->selector->onRegionSelected(QRectF(10, 10, 100, 100), m_primary);
        m_rig->preview->onCancelled();
        QCOMPARE(m_c->state(), CaptureState::idle);
        QVERIFY(!m_c->readyToRecordPayload());
    }

    void selectStartStopWritesOneGif()
    {
        selectRegion(QRectF(100, 200, 300, 150), m_primary);
        QCOMPARE(m_c->state(), CaptureState::readyToRecord);
        QCOMPARE(m_c->readyToRecordPayload()->first, QRectF(100, 200, 300, 150));
        const auto& j = m_rig->journal;
        QVERIFY(j.has(QStringLiteral("preview.show primary 100,200 300x150")));
        QVERIFY(j.has(QStringLiteral("toolbar.show 100,200 300x150 on 0,0 1920x1080")));

        // Dragging the region takes the toolbar along.
        m_rig->preview->onRegionChanged(QRectF(50, 100, 400, 200));
        QVERIFY(j.has(QStringLiteral("toolbar.follow 50,100 400x200")));
        QCOMPARE(m_c->readyToRecordPayload()->first, QRectF(100, 200, 300, 150));

        // Return on the region starts the recording as Start does.
        m_rig->preview->onConfirmed();
        QTRY_VERIFY(coordinator().state() != CaptureState::readyToRecord);
        QCOMPARE(m_c->state(), CaptureState::recording);
        // The recorder gets the adjusted region relative to the display's top-left corner.
        QVERIFY2(j.has(QStringLiteral("recorder.start 50,780 400x200 @15 max30 x2")),
                 qPrintable(j.entries.join('\n')));
        QVERIFY(j.at(QStringLiteral("preview.hide")) <
                j.at(QStringLiteral("recorder.start 50,780 400x200 @15 max30 x2")));
        QCOMPARE(m_rig->reported, QList<bool>{true});
        QVERIFY(m_rig->toolbar->state.isRecording());
        QVERIFY(m_rig->toolbar->state.isTimerRunning());
        QVERIFY(j.has(QStringLiteral("border.show 50,100 400x200")));

        pressToolbar(m_rig->toolbar->onStop);
        QCOMPARE(m_c->state(), CaptureState::encoding);
        QVERIFY(!m_rig->toolbar->state.isTimerRunning());

        QTRY_COMPARE(m_rig->gifs.size(), 1);
        QCOMPARE(m_c->state(), CaptureState::idle);
        QCOMPARE(m_rig->reported, (QList<bool>{true, false}));
        QVERIFY(j.at(QStringLiteral("reported 0")) < j.at(QStringLiteral("gifCreated")));
        QCOMPARE(m_rig->encoder->lastDelay, 1.0 / 15.0);

        const QFileInfo file(m_rig->gifs.first());
        QCOMPARE(file.absolutePath(), QFileInfo(m_dir.path()).absoluteFilePath());
        QVERIFY2(QRegularExpression(QStringLiteral("^vantalo_\\d+\\.gif$")).match(file.fileName()).hasMatch(),
                 qPrintable(file.fileName()));
        const qint64 seconds = file.fileName().mid(8).chopped(4).toLongLong();
        QVERIFY(qAbs(seconds - QDateTime::currentSecsSinceEpoch()) < 5);
        QCOMPARE(file.permissions() &
                     (QFile::ReadGroup | QFile::ReadOther | QFile::WriteGroup | QFile::WriteOther),
                 QFile::Permissions());
        QFile written(file.filePath());
        QVERIFY(written.open(QIODevice::ReadOnly));
        QCOMPARE(written.readAll(), QByteArray("GIF89a frames=1"));
        QVERIFY(m_rig->journal.printed.isEmpty());
    }

    // With a countdown set, Start (or Return) counts down on the region before the recording;
    // Start again, Escape or the shortcut cancel it, and the region stays to adjust.
    void aCountdownBeforeTheRecording()
    {
        m_defaults->setInteger(SettingsKey::countdownSeconds, 3);
        const auto& j = m_rig->journal;
        selectRegion();
        const std::function<void()> cancels[] = {[this] { m_rig->toolbar->onStart(); },
                                                 [this] { m_rig->preview->onCancelled(); },
                                                 [this] { m_c->handleHotkeyPress(); }};
        for (const auto& cancel : cancels) {
            pressToolbar(m_rig->preview->onConfirmed);
            QCOMPARE(j.entries.last(), QStringLiteral("preview.countdown 3"));
            pressToolbar(cancel);
            QCOMPARE(j.entries.last(), QStringLiteral("preview.countdown 0"));
            QCOMPARE(m_c->state(), CaptureState::readyToRecord);
        }
        pressToolbar(m_rig->toolbar->onStart);
        QTRY_COMPARE(m_c->state(), CaptureState::recording);
        const QStringList order{QStringLiteral("preview.countdown 2"), QStringLiteral("preview.countdown 1"),
                                QStringLiteral("preview.hide"),
                                QStringLiteral("recorder.start 0,780 400x300 @15 max30 x2")};
        for (qsizetype i = 1; i < order.size(); ++i) {
            QVERIFY2(j.at(order[i - 1]) >= 0 && j.at(order[i - 1]) < j.at(order[i]),
                     qPrintable(j.entries.join('\n')));
        }
    }

    void startWithoutPermissionWaitsForIt()
    {
        m_rig->permission.granted = false;
        selectRegion(QRectF(0, 0, 200, 200), m_primary);
        pressToolbar(m_rig->toolbar->onStart);
        QCOMPARE(m_rig->permission.requests, 1);
        QCOMPARE(m_c->state(), CaptureState::readyToRecord);
        QVERIFY(!m_rig->journal.has(QStringLiteral("preview.hide")));
        QVERIFY(m_rig->toolbar->shown);

        m_rig->permission.granted = true;
        startAndWait();
        QCOMPARE(m_c->state(), CaptureState::recording);
    }

    void failuresSayTheirLineAndEndIdle()
    {
        const std::pair<std::function<void()>, QString> failures[] = {
            {[this] { m_rig->recorder->startFailure = Failure{QStringLiteral("no capture here")}; },
             QStringLiteral("Failed to start recording: no capture here")},
            {[this] { m_rig->recorder->stopFailure = Failure{QStringLiteral("the stream broke")}; },
             QStringLiteral("Failed to encode GIF: the stream broke")},
            {[this] { m_rig->recorder->frames.clear(); }, QStringLiteral("No frames captured")},
            {[this] { m_rig->encoder->failure = Failure{QStringLiteral("Failed to encode GIF")}; },
             QStringLiteral("Failed to encode GIF: Failed to encode GIF")},
            {[this] { m_c = m_rig->make(*m_defaults, m_dir.filePath(QStringLiteral("no/such/directory"))); },
             QStringLiteral("Failed to encode GIF: ")},
        };
        for (const auto& [fail, line] : failures) {
            cleanup();
            init();
            fail();
            QStringList said; // where the user looks
            m_c->onRecordingFailed = [&said](const QString& text) { said << text; };
            selectAndStart(QRectF(0, 0, 200, 200), m_primary);
            const bool started = m_c->state() == CaptureState::recording;
            if (started) {
                pressToolbar(m_rig->toolbar->onStop);
            }
            QTRY_COMPARE(m_c->state(), CaptureState::idle);
            QCOMPARE(m_rig->journal.printed.size(), 1);
            QVERIFY2(m_rig->journal.printed.first().startsWith(line),
                     qPrintable(m_rig->journal.printed.first()));
            QCOMPARE(said, m_rig->journal.printed);
            QVERIFY(m_rig->gifs.isEmpty());
            // A start that fails takes everything down, as a cancel does; the others end a recording.
            QCOMPARE(m_rig->reported, started ? (QList<bool>{true, false}) : (QList<bool>{false}));
            QCOMPARE(m_rig->journal.has(QStringLiteral("border.show 0,0 200x200")), started);
            QVERIFY(m_rig->journal.has(QStringLiteral("toolbar.hide")));
        }
    }

    void shortcutInEveryState()
    {
        m_rig->hotkey->press();
        QCOMPARE(m_c->state(), CaptureState::idle); // not registered yet: nothing listens
        // A stored shortcut that cannot be used gives way to the default. (One in force, and a
        // refusal reaching the alert: the application tests.)
        m_defaults->setString(SettingsKey::hotkeyModifiers, QStringLiteral("abc"));
        m_c->registerHotkey();
        QCOMPARE(m_rig->hotkey->registered, (Shortcut{5, 0x100000}));
        QCOMPARE(m_rig->journal.printed,
                 QStringList{
                     QStringLiteral("The shortcut in the settings cannot be used; Ctrl+G is used instead")});
        // Three presses: select, cancel, select.
        m_rig->hotkey->press();
        QCOMPARE(m_c->state(), CaptureState::selectingRegion);
        m_rig->hotkey->press();
        QCOMPARE(m_c->state(), CaptureState::idle);
        m_rig->hotkey->press();
        QCOMPARE(m_c->state(), CaptureState::selectingRegion);

        m_rig->selector->onRegionSelected(QRectF(0, 0, 300, 300), m_primary);
        m_rig->hotkey->press();
        QCOMPARE(m_c->state(), CaptureState::idle);
        QVERIFY(m_rig->journal.has(QStringLiteral("preview.hide")));
        QCOMPARE(m_rig->reported, (QList<bool>{false, false}));

        // While the recorder starts: the capture ends, and the recorder is stopped once it answers.
        selectRegion();
        m_rig->toolbar->onStart();
        QCoreApplication::processEvents(); // Start taken; the recorder has not answered yet
        QVERIFY(m_rig->journal.has(QStringLiteral("recorder.start 0,780 400x300 @15 max30 x2")));
        m_rig->hotkey->press();
        QCOMPARE(m_c->state(), CaptureState::idle);
        QTRY_VERIFY(!m_rig->recorder->recording);
        QCOMPARE(m_c->state(), CaptureState::idle);
        QVERIFY(!m_rig->journal.has(QStringLiteral("border.show 0,0 400x300")));

        selectAndStart();
        m_rig->hotkey->press();
        QCOMPARE(m_c->state(), CaptureState::recording); // the stop runs on a later turn
        QCoreApplication::processEvents();
        QCOMPARE(m_c->state(), CaptureState::encoding);
        m_rig->hotkey->press();
        QCOMPARE(m_c->state(), CaptureState::encoding);
        QTRY_COMPARE(m_rig->gifs.size(), 1);
    }

    void restartDiscardsAndRecordsAgain()
    {
        // On a display whose frame does not start at (0, 0): the recorder gets the rectangle
        // relative to its top-left corner, and the display's name, so it captures that one.
        // The output settings apply from each start: 1× at 10 fps, then a scale that cannot be used
        // gives way to 2× and says so.
        m_defaults->setInteger(SettingsKey::outputScale, 1);
        m_defaults->setString(SettingsKey::outputFrameRate, QStringLiteral("10"));
        m_rig->recorder->frames = FrameList(3, Frame{QImage(4, 2, QImage::Format_RGB32), 2});
        selectAndStart(QRectF(2000, 300, 640, 480), m_secondary);
        QVERIFY2(m_rig->journal.has(QStringLiteral("recorder.start 80,220 640x480 @10 max30 x1")),
                 qPrintable(m_rig->journal.entries.join('\n')));
        QVERIFY(m_rig->journal.printed.isEmpty());
        m_defaults->setInteger(SettingsKey::outputScale, 3);
        const QString started = QStringLiteral("recorder.start 80,220 640x480 @10 max30 x2");
        QVERIFY(m_rig->journal.has(QStringLiteral("recorder.display right")));
        m_rig->toolbar->state.setElapsedSeconds(7);
        m_rig->journal.entries.clear();

        m_rig->toolbar->onRestart();
        QTRY_COMPARE(m_rig->journal.count(started), 1);
        QCOMPARE(
            m_rig->journal.printed,
            QStringList{QStringLiteral("The setting outputScale (3) cannot be used; 2 is used instead")});
        QTRY_COMPARE(m_c->state(), CaptureState::recording);
        const auto& j = m_rig->journal;
        QVERIFY(j.at(QStringLiteral("recorder.stop")) < j.at(QStringLiteral("border.hide")));
        QVERIFY(j.at(QStringLiteral("border.hide")) < j.at(started));
        QCOMPARE(m_rig->toolbar->state.elapsedSeconds(), 0.0);
        QVERIFY(m_rig->toolbar->state.isTimerRunning());
        QVERIFY(!j.has(QStringLiteral("toolbar.hide")));
        // No "not recording" between the two recordings; the new start reports true again.
        QCOMPARE(m_rig->reported, (QList<bool>{true, true}));
        QVERIFY(m_rig->gifs.isEmpty());

        // The first recording's session is thrown away unfinished; the GIF is the second's.
        QCOMPARE(m_rig->encoder->sessionsOpened, 2);
        pressToolbar(m_rig->toolbar->onStop);
        QTRY_COMPARE(m_rig->gifs.size(), 1);
        QCOMPARE(m_rig->encoder->sessionsFinished.load(), 1);
        QFile gif(m_rig->gifs.first());
        QVERIFY(gif.open(QIODevice::ReadOnly));
        QCOMPARE(gif.readAll(), QByteArray("GIF89a frames=3"));
        QCOMPARE(m_rig->encoder->lastDelay, 1.0 / 10.0);
        QVERIFY(!m_rig->recorder->frameSink); // the recorder lets go of the session
    }

    void callbacksOfAGoneCoordinatorDoNothing()
    {
        // The coordinator goes away while its worker is still encoding: the result reaches nobody.
        m_rig->encoder->gate = std::make_shared<QSemaphore>();
        selectAndStart();
        m_c->stopRecording();
        QTRY_VERIFY(m_rig->encoder->started.available() > 0);
        m_c.reset();
        m_rig->encoder->gate->release();
        QThreadPool::globalInstance()->waitForDone();
        QTest::qWait(50);
        QVERIFY(m_rig->gifs.isEmpty());
        QCOMPARE(m_rig->reported, QList<bool>{true});
    }

    void menuFollowsTheStateAndTheShortcut()
    {
        startApplication();
        // No keys beside the items: none would work from a tray menu.
        const QStringList common{QStringLiteral("--"), QStringLiteral("History..."),
                                 QStringLiteral("--"), QStringLiteral("Preferences..."),
                                 QStringLiteral("--"), QStringLiteral("About Vantalo"),
                                 QStringLiteral("--"), QStringLiteral("Quit Vantalo")};
        QCOMPARE(menuLines(m_delegate->menu()),
                 QStringList({QStringLiteral("Record GIF"), QStringLiteral("Ctrl+G (disabled)"),
                              QStringLiteral("Record Last Region (disabled)")}) +
                     common);

        // While a region is chosen the first item is "Stop Recording", and it does nothing yet.
        menuAction(m_delegate->menu(), QStringLiteral("Record GIF"))->trigger();
        QCOMPARE(coordinator().state(), CaptureState::selectingRegion);
        QCOMPARE(menuLines(m_delegate->menu()), QStringList{QStringLiteral("Stop Recording")} + common);
        menuAction(m_delegate->menu(), QStringLiteral("Stop Recording"))->trigger();
        QCoreApplication::processEvents();
        QCOMPARE(coordinator().state(), CaptureState::selectingRegion);

        // A shortcut stored in the preferences shows at the next opening and is registered at once.
        m_delegate->toggleCapture();
        storeShortcut(*m_defaults, Shortcut{23, 0x120000});
        m_notifier.post();
        QCOMPARE(m_rig->hotkey->registered, (Shortcut{23, 0x120000}));
        QCOMPARE(menuLines(m_delegate->menu()).at(1), QStringLiteral("Shift+Ctrl+5 (disabled)"));
        // Where the desktop decides the keys, its words; where it has no shortcuts, the command.
        m_rig->hotkey->trigger = QStringLiteral("Meta+R");
        QCOMPARE(menuLines(m_delegate->menu()).at(1), QStringLiteral("Meta+R (disabled)"));
        m_rig->hotkey->trigger = QString();
        QCOMPARE(menuLines(m_delegate->menu()).at(1),
                 QStringLiteral("\u201Cvantalo --toggle\u201D (disabled)"));
    }

    // A recording pauses and resumes from the toolbar, the tray menu, its own shortcut and
    // `vantalo --pause`; paused, its border can be dragged, and it goes on from there. A stop
    // while paused writes the GIF.
    void pauseAndResumeFromEveryPlace()
    {
        m_rig->selector->displayList = {m_primary};
        startApplication();
        const auto& j = m_rig->journal;
        QCOMPARE(m_rig->pauseHotkey->registered, (Shortcut{KeyCode::g, 0x120000}));
        QCOMPARE(m_rig->lastRegionHotkey->registered, (Shortcut{KeyCode::g, 0x180000}));
        m_rig->pauseHotkey->press(); // nothing to pause yet
        QVERIFY(!j.has(QStringLiteral("recorder.pause")));
        selectAndStart(QRectF(0, 0, 300, 300));
        QCOMPARE(menuLines(m_delegate->menu()).mid(0, 2),
                 (QStringList{QStringLiteral("Stop Recording"), QStringLiteral("Pause Recording")}));

        menuAction(m_delegate->menu(), QStringLiteral("Pause Recording"))->trigger();
        QTRY_VERIFY(coordinator().isPaused());
        QVERIFY(m_rig->recorder->paused && m_rig->toolbar->state.isPaused());
        QCOMPARE(m_rig->toolbar->state.label(), QStringLiteral("Paused"));
        QVERIFY(!m_rig->toolbar->state.isTimerRunning());
        QCOMPARE(j.entries.last(), QStringLiteral("border.paused 1"));
        QCOMPARE(menuLines(m_delegate->menu()).at(1), QStringLiteral("Resume Recording"));

        // Dragged while paused: the toolbar follows, and the recording goes on from there.
        m_rig->border->onMoved(QRectF(100, 200, 300, 300));
        QCOMPARE(j.entries.last(), QStringLiteral("toolbar.follow 100,200 300x300"));
        m_rig->pauseHotkey->press();
        QTRY_VERIFY(!coordinator().isPaused());
        QVERIFY(j.has(QStringLiteral("recorder.resume 100,580 300x300")));
        QCOMPARE(j.entries.last(), QStringLiteral("border.paused 0"));
        QVERIFY(m_rig->toolbar->state.isTimerRunning());
        // A drag while recording moves nothing.
        const qsizetype entries = j.entries.size();
        m_rig->border->onMoved(QRectF(0, 0, 300, 300));
        QCOMPARE(j.entries.size(), entries);

        m_rig->toolbar->onPauseResume();
        QTRY_VERIFY(coordinator().isPaused());
        m_delegate->togglePause(); // `vantalo --pause`
        QTRY_VERIFY(!coordinator().isPaused());
        m_delegate->togglePause();
        QTRY_VERIFY(coordinator().isPaused());
        pressToolbar(m_rig->toolbar->onStop);
        QTRY_COMPARE(m_history.added.size(), 1);
        QVERIFY(!coordinator().isPaused() && !m_rig->toolbar->state.isPaused());
        QVERIFY(j.at(QStringLiteral("border.hide")) < j.entries.lastIndexOf(QStringLiteral("recorder.stop")));
        QCOMPARE(j.entries.count(QStringLiteral("recorder.pause")), 3);

        // The last region, where the pause left it, has its own shortcut too.
        m_rig->lastRegionHotkey->press();
        QCOMPARE(coordinator().state(), CaptureState::readyToRecord);
        QCOMPARE(coordinator().selectedRegion(), QRectF(100, 200, 300, 300));
    }

    // The region of the last recording comes back, in this run and the next, while its display is
    // there as it was: outlined in the selection, or straight to the toolbar from the menu or
    // `vantalo --toggle --last-region`.
    void theLastRegionComesBack()
    {
        m_rig->selector->displayList = {m_primary, m_secondary};
        startApplication();
        const auto lastRegionItem = [this] {
            return menuAction(m_delegate->menu(), QStringLiteral("Record Last Region"));
        };
        QVERIFY(!lastRegionItem()->isEnabled());
        const auto& j = m_rig->journal;
        // None yet: the selection opens.
        m_delegate->toggleCapture(true);
        QCOMPARE(j.entries.last(), QStringLiteral("selector.show"));
        m_rig->selector->onRegionSelected(QRectF(2000, 300, 640, 360), m_secondary);
        startAndWait();
        m_delegate->toggleCapture(true); // while recording, a stop like the shortcut's
        QTRY_COMPARE(coordinator().state(), CaptureState::idle);
        const LastRegion last{QRectF(2000, 300, 640, 360), m_secondary};
        UserDefaults nextRun(m_dir.filePath(QStringLiteral("settings.ini")));
        QCOMPARE(recallLastRegion(nextRun, {m_secondary}), std::optional(last));

        lastRegionItem()->trigger();
        QCOMPARE(coordinator().state(), CaptureState::readyToRecord);
        QVERIFY(j.has(QStringLiteral("preview.show right 2000,300 640x360")));
        QVERIFY(j.has(QStringLiteral("toolbar.show 2000,300 640x360 on 1920,200 1280x800")));
        m_rig->preview->onCancelled();
        coordinator().beginRegionSelection();
        QCOMPARE(j.entries.last(), QStringLiteral("selector.show last 2000,300 640x360"));
        m_rig->selector->onCancelled();

        // Its monitor changed size: forgotten, even once it is back as it was.
        m_rig->selector->displayList = {m_primary,
                                        DisplayInfo{m_secondary.name, QRectF(1920, 200, 1920, 1080)}};
        m_delegate->toggleCapture(true);
        QCOMPARE(coordinator().state(), CaptureState::selectingRegion);
        QCOMPARE(j.entries.last(), QStringLiteral("selector.show"));
        m_rig->selector->onCancelled();
        m_rig->selector->displayList = {m_primary, m_secondary};
        QVERIFY(!lastRegionItem()->isEnabled());
    }

    // Both looks of the tray icon stand out from light and dark panels alike: a good part of it
    // differs from the panel by more than a third of the range.
    void theTrayIconShowsOnLightAndDarkPanels()
    {
        for (const StatusIconLook look : {StatusIconLook::idle, StatusIconLook::recording}) {
            for (const QColor panel :
                 {QColor(245, 245, 245), QColor(190, 190, 190), QColor(43, 43, 43), QColor(Qt::black)}) {
                QImage tray(22, 22, QImage::Format_RGB32);
                tray.fill(panel);
                QPainter(&tray).drawImage(0, 0, renderStatusIcon(look, 22));
                int standingOut = 0;
                for (int y = 0; y < tray.height(); ++y) {
                    for (int x = 0; x < tray.width(); ++x) {
                        const QColor c = tray.pixelColor(x, y);
                        standingOut += std::max({qAbs(c.red() - panel.red()), qAbs(c.green() - panel.green()),
                                                 qAbs(c.blue() - panel.blue())}) > 85;
                    }
                }
                QVERIFY2(standingOut >= 100, qPrintable(QStringLiteral("%1 on %2: %3 pixels")
                                                            .arg(int(look))
                                                            .arg(panel.name())
                                                            .arg(standingOut)));
            }
        }
    }

    void stopFromTheMenuTheTimeLimitAndQuit()
    {
        startApplication();
        selectAndStart();
        QCOMPARE(coordinator().state(), CaptureState::recording);
        menuAction(m_delegate->menu(), QStringLiteral("Stop Recording"))->trigger();
        QTRY_COMPARE(coordinator().state(), CaptureState::idle);
        QTRY_COMPARE(m_history.added.size(), 1);
        QVERIFY(m_preview->told.isEmpty());

        // The limit: the toolbar counts down its last seconds, and the panel says why it ended.
        selectAndStart();
        QCOMPARE(coordinator().state(), CaptureState::recording);
        auto& toolbar = m_rig->toolbar->state;
        toolbar.setElapsedSeconds(24);
        QCOMPARE(toolbar.label(), QStringLiteral("0:24"));
        toolbar.setElapsedSeconds(25);
        QCOMPARE(toolbar.label(), QStringLiteral("5 s left"));
        toolbar.setElapsedSeconds(29.5);
        QCOMPARE(toolbar.label(), QStringLiteral("1 s left"));
        m_rig->recorder->onMaxDurationReached();
        QTRY_COMPARE(coordinator().state(), CaptureState::idle);
        QTRY_COMPARE(m_history.added.size(), 2);
        QCOMPARE(m_preview->told, QStringList{QStringLiteral("Stopped at 30 s")});

        // Quit while recording stops it, and quits once the GIF is listed and fitted (the setting
        // on); a second Quit quits at once, the recording unsaved.
        m_defaults->setInteger(SettingsKey::fitUnderBytes, 1000000);
        selectAndStart();
        menuAction(m_delegate->menu(), QStringLiteral("Quit Vantalo"))->trigger();
        QTRY_COMPARE(m_preview->fitted.size(), 1);
        QCOMPARE(m_history.added.size(), 3);
        QCOMPARE(m_quits, 0);
        m_preview->working = false;
        m_preview->onWorkFinished();
        QCOMPARE(m_quits, 1);
        selectAndStart();
        m_delegate->quit();
        QCOMPARE(m_quits, 2);
        QCOMPARE(coordinator().state(), CaptureState::recording);
        m_rig->toolbar->onStop();
        QTRY_COMPARE(coordinator().state(), CaptureState::idle);

        // Quitting takes down what is on screen and lets go of the shortcut.
        selectRegion();
        m_rig->journal.entries.clear();
        m_delegate->applicationWillTerminate();
        for (const char* entry : {"hotkey.unregister", "preview.hide", "toolbar.hide"}) {
            QVERIFY2(m_rig->journal.has(QString::fromLatin1(entry)), entry);
        }
    }

    // A GIF the history cannot keep is shown where it is, without an entry to act on. (Kept, it is
    // shown from the history; picked in the history window, it is shown again: the end-to-end flow.)
    void aGifTheHistoryCannotKeepIsShownWhereItIs()
    {
        startApplication();
        m_history.failure = Failure{QStringLiteral("disk full")};
        m_delegate->handleGifCreated(QStringLiteral("/tmp/vantalo_2.gif"), RecordingEnd::stoppedByUser);
        QCOMPARE(m_printed, QStringList{QStringLiteral("Failed to save GIF to history: disk full")});
        QCOMPARE(m_preview->shown.size(), 1u);
        QCOMPARE(m_preview->shown[0].path, QStringLiteral("/tmp/vantalo_2.gif"));
        QVERIFY(!m_preview->shown[0].id);
        // With a size to fit every recording under, the panel is asked to fit what it shows.
        QVERIFY(m_preview->fitted.isEmpty());
        m_defaults->setInteger(SettingsKey::fitUnderBytes, 1'000'000);
        m_delegate->handleGifCreated(QStringLiteral("/tmp/vantalo_3.gif"), RecordingEnd::stoppedByUser);
        QCOMPARE(m_preview->fitted, QList<qint64>{1'000'000});

        // The history window's Fit and Copy act in the panel, on the item shown there; its Trim
        // and the panel's open the trim window, whose result is kept and shown.
        const GifHistoryItem item{QUuid::createUuid(), QStringLiteral("a.gif"), {}, 10, {}};
        m_historyWindow->onFitItem(item, 5'000'000);
        QCOMPARE(m_preview->shown.back().path, QStringLiteral("/history/a.gif"));
        QCOMPARE(m_preview->fitted.last(), -5'000'000); // a new entry beside the original
        m_historyWindow->onCopyItem(item);
        QCOMPARE(m_preview->copied, 1);
        m_historyWindow->onTrimItem(item);
        m_preview->onTrim(QStringLiteral("/elsewhere/b.gif"), std::nullopt);
        QCOMPARE(m_trim->opened,
                 (QStringList{QStringLiteral("/history/a.gif"), QStringLiteral("/elsewhere/b.gif")}));
        m_history.failure.reset();
        m_trim->onSaved(QStringLiteral("/tmp/trimmed.gif"));
        QCOMPARE(m_history.added.last(), QStringLiteral("/tmp/trimmed.gif"));
        QCOMPARE(m_preview->shown.back().path, QStringLiteral("/history/kept.gif"));
    }

    // A new capture first takes the earlier GIF's panel away (it could stand in the region); a
    // recording that ends without a GIF says why in a box.
    void aFailedRecordingSaysWhy()
    {
        startApplication();
        m_rig->recorder->startFailure = Failure{QStringLiteral("The region lies outside the screen")};
        QCOMPARE(m_preview->dismissed, 0);
        selectAndStart();
        QCOMPARE(m_preview->dismissed, 1);
        QMessageBox* alert = m_delegate->recordingFailedAlert();
        QVERIFY(alert && alert->isVisible());
        QCOMPARE(alert->text(), QStringLiteral("Recording Failed"));
        QCOMPARE(alert->informativeText(),
                 QStringLiteral("Failed to start recording: The region lies outside the screen"));
    }

    void refusedShortcutOffersThePreferences()
    {
        startApplication();
        m_rig->hotkey->refuse = true;
        m_notifier.post();
        QMessageBox* alert = m_delegate->shortcutAlert();
        QVERIFY(alert);
        QCOMPARE(alert->windowTitle(), QStringLiteral("Shortcut Unavailable"));
        QCOMPARE(alert->text(), QStringLiteral("Shortcut Unavailable"));
        QVERIFY(alert->informativeText().startsWith(
            QStringLiteral("Vantalo could not register the global shortcut Ctrl+G. ")));
        QVERIFY(alert->informativeText().endsWith(
            QStringLiteral("bind the command \u201Cvantalo --toggle\u201D in your "
                           "desktop's keyboard settings.")));
        QStringList buttons;
        for (QAbstractButton* button : alert->buttons()) {
            buttons << button->text();
        }
        QCOMPARE(buttons, (QStringList{QStringLiteral("Open Preferences"), QStringLiteral("Later")}));

        // A second refusal while the alert is up does not stack another one.
        m_notifier.post();
        QCOMPARE(m_delegate->shortcutAlert(), alert);

        alert->buttons().constFirst()->click();
        QTRY_VERIFY(m_delegate->preferencesWindow());
    }

    // A second start hands its request to the running instance, however long that one takes to
    // answer; it runs itself only where nobody listens, and never takes a live instance's socket.
    void aSecondStartHandsOverOrRunsAlone()
    {
        using Handover = SingleInstance::Handover;
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("vantalo.socket"));
        QCOMPARE(SingleInstance::sendToRunningInstance(path, SingleInstance::toggleMessage),
                 Handover::noInstance);

        // An instance busy for 1.5 s before its event loop takes the request, and one that never does.
        for (const bool answers : {true, false}) {
            std::binary_semaphore listening(0);
            QByteArray received;
            std::unique_ptr<QThread> running(QThread::create([&] {
                QLocalServer server;
                QVERIFY(server.listen(path));
                listening.release();
                QVERIFY(server.waitForNewConnection(5000));
                QLocalSocket* socket = server.nextPendingConnection();
                QVERIFY(socket->waitForReadyRead(5000));
                received = socket->readLine();
                if (answers) {
                    QThread::msleep(1500);
                    socket->write("ok\n");
                    socket->waitForBytesWritten(5000);
                }
                socket->waitForDisconnected(5000);
            }));
            running->start();
            listening.acquire();
            QCOMPARE(SingleInstance::sendToRunningInstance(path, SingleInstance::toggleMessage,
                                                           std::chrono::milliseconds(answers ? 10000 : 300)),
                     answers ? Handover::delivered : Handover::noAnswer);
            QVERIFY(running->wait(10000));
            QVERIFY2(received.startsWith("toggle "), received.constData());
        }

        // A socket left behind is taken over; a live one is not.
        QFile leftBehind(path);
        QVERIFY(leftBehind.open(QIODevice::WriteOnly));
        leftBehind.close();
        SingleInstance first(path);
        QVERIFY(first.listen());
        QSignalSpy messages(&first, &SingleInstance::messageReceived);
        SingleInstance second(path);
        QVERIFY(!second.listen());
        std::optional<Handover> handedOver;
        std::unique_ptr<QThread> handOver(QThread::create([&] {
            handedOver = SingleInstance::sendToRunningInstance(path, SingleInstance::activateMessage);
        }));
        handOver->start();
        QTRY_COMPARE(messages.size(), 1);
        QVERIFY(handOver->wait(10000));
        QCOMPARE(handedOver, Handover::delivered);
        QCOMPARE(messages.constFirst().constFirst().toByteArray(), SingleInstance::activateMessage);

        // A request the instance reaches only after its sender gave up is not carried out.
        std::unique_ptr<QThread> givenUp(QThread::create([&] {
            handedOver = SingleInstance::sendToRunningInstance(path, SingleInstance::toggleMessage,
                                                               std::chrono::milliseconds(300));
        }));
        givenUp->start();
        QVERIFY(givenUp->wait(10000)); // this thread, the instance's, is busy meanwhile
        QCOMPARE(handedOver, Handover::noAnswer);
        QTest::qWait(300);
        QCOMPARE(messages.size(), 1);
    }
};

QTEST_MAIN(TestCapture)
#include "tst_capture.moc"
