#include "../fakes/CaptureFakes.h"

#include "app/AppDelegate.h"
#include "settings/HotkeySettingsNotifier.h"
#include "settings/KeychainStore.h"
#include "settings/MemorySecretStore.h"
#include "settings/ShortcutSettings.h"
#include "settings/UserDefaults.h"

#include <QAbstractButton>
#include <QApplication>
#include <QTemporaryDir>
#include <QTest>

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
        return GifHistoryItem{itemId, QStringLiteral("kept.gif"), QDateTime::currentDateTimeUtc(), 10, {}};
    }
    QString filePath(const GifHistoryItem& item) const override
    {
        return QStringLiteral("/history/") + item.filename;
    }

    QStringList added;
    std::optional<Failure> failure;
    QUuid itemId = QUuid::createUuid();
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
    std::vector<Shown> shown;
};

class FakeHistoryWindow final : public HistoryWindowPresenter
{
public:
    void show() override { ++shows; }
    int shows = 0;
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

class TestAppDelegate : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    std::unique_ptr<UserDefaults> m_defaults;
    HotkeySettingsNotifier m_notifier;
    MemorySecretStore m_secrets;
    KeychainStore m_keychain{m_secrets};
    FakeHistory m_history;
    std::unique_ptr<CoordinatorRig> m_rig;
    FakePreview* m_preview = nullptr;
    FakeHistoryWindow* m_historyWindow = nullptr;
    QStringList m_printed;
    std::unique_ptr<AppDelegate> m_delegate;

    CaptureCoordinator& coordinator() { return m_delegate->captureCoordinator(); }
    void selectRegion()
    {
        m_delegate->startRecording();
        m_rig->selector->onRegionSelected(QRectF(0, 0, 400, 300),
                                          DisplayInfo{QStringLiteral("s"), QRectF(0, 0, 1920, 1080)});
    }

private Q_SLOTS:
    void init()
    {
        m_defaults = std::make_unique<UserDefaults>(m_dir.filePath(QStringLiteral("settings.ini")));
        m_rig = std::make_unique<CoordinatorRig>();
        auto preview = std::make_unique<FakePreview>();
        auto historyWindow = std::make_unique<FakeHistoryWindow>();
        m_preview = preview.get();
        m_historyWindow = historyWindow.get();
        m_history.failure.reset();
        m_printed.clear();
        m_delegate = std::make_unique<AppDelegate>(
            AppServices{*m_defaults, m_keychain, m_notifier, m_rig->permission, m_history,
                        [this](const QString& line) { m_printed << line; }},
            m_rig->make(*m_defaults, m_dir.path()), std::move(preview), std::move(historyWindow));
        m_delegate->setupApplication();
    }
    void cleanup()
    {
        m_delegate.reset();
        m_rig.reset();
        QFile::remove(m_dir.filePath(QStringLiteral("settings.ini")));
    }

    void menuFollowsTheStateAndTheShortcut()
    {
        const QStringList common{QStringLiteral("--"), QStringLiteral("History... [Ctrl+H]"),
                                 QStringLiteral("--"), QStringLiteral("Preferences... [Ctrl+,]"),
                                 QStringLiteral("--"), QStringLiteral("About Vantalo"),
                                 QStringLiteral("--"), QStringLiteral("Quit Vantalo [Ctrl+Q]")};
        QCOMPARE(menuLines(m_delegate->menu()),
                 QStringList({QStringLiteral("Record GIF"), QStringLiteral("Ctrl+G (disabled)")}) + common);

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

    void stopFromTheMenuTheTimeLimitAndQuit()
    {
        selectRegion();
        m_rig->toolbar->onStart();
        QTRY_COMPARE(coordinator().state(), CaptureState::recording);
        QCOMPARE(m_delegate->statusIconLook(), StatusIconLook::recording);
        menuAction(m_delegate->menu(), QStringLiteral("Stop Recording"))->trigger();
        QTRY_COMPARE(coordinator().state(), CaptureState::idle);
        QCOMPARE(m_delegate->statusIconLook(), StatusIconLook::idle);

        selectRegion();
        m_rig->toolbar->onStart();
        QTRY_COMPARE(coordinator().state(), CaptureState::recording);
        m_rig->recorder->onMaxDurationReached();
        QTRY_COMPARE(coordinator().state(), CaptureState::idle);
        QCOMPARE(m_history.added.size(), 2);

        // Quitting takes down what is on screen and lets go of the shortcut.
        selectRegion();
        m_rig->journal.entries.clear();
        m_delegate->applicationWillTerminate();
        for (const char* entry : {"hotkey.unregister", "preview.hide", "toolbar.hide"}) {
            QVERIFY2(m_rig->journal.has(QString::fromLatin1(entry)), entry);
        }
    }

    void finishedGifGoesToHistoryThenPreview()
    {
        m_delegate->handleGifCreated(QStringLiteral("/tmp/vantalo_1.gif"));
        QCOMPARE(m_preview->shown.size(), 1u);
        QCOMPARE(m_preview->shown[0].path, QStringLiteral("/history/kept.gif"));
        QCOMPARE(m_preview->shown[0].id, m_history.itemId);

        m_history.failure = Failure{QStringLiteral("disk full")};
        m_delegate->handleGifCreated(QStringLiteral("/tmp/vantalo_2.gif"));
        QCOMPARE(m_printed, QStringList{QStringLiteral("Failed to save GIF to history: disk full")});
        QCOMPARE(m_preview->shown[1].path, QStringLiteral("/tmp/vantalo_2.gif"));
        QVERIFY(!m_preview->shown[1].id);

        // A history item picked in the history window opens the panel on the stored file.
        m_delegate->showHistory();
        QCOMPARE(m_historyWindow->shows, 1);
        m_historyWindow->onSelectItem(GifHistoryItem{m_history.itemId, QStringLiteral("old.gif"), {}, 1, {}});
        QCOMPARE(m_preview->shown[2].path, QStringLiteral("/history/old.gif"));
        QCOMPARE(m_preview->shown[2].id, m_history.itemId);
    }

    void refusedShortcutOffersThePreferences()
    {
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
};

QTEST_MAIN(TestAppDelegate)
#include "tst_appdelegate.moc"
