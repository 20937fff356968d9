#pragma once

#include "HistoryStore.h"
#include "HistoryWindowPresenter.h"
#include "PreviewPresenter.h"
#include "StatusIcon.h"
#include "TrimPresenter.h"
#include "capture/CaptureCoordinator.h"
#include "common/Console.h"
#include "settings/PreferencesWindow.h"

#include <QCoreApplication>
#include <QMenu>
#include <QMessageBox>
#include <QObject>
#include <QPointer>
#include <QSystemTrayIcon>

#include <memory>

namespace vantalo {

class HotkeySettingsNotifier;
class KeychainStore;
class ScreenCapturePermission;
class UserDefaults;

// What the delegate works with but does not own.
struct AppServices
{
    UserDefaults& defaults;
    KeychainStore& keychain;
    HotkeySettingsNotifier& hotkeySettings;
    ScreenCapturePermission& capturePermission;
    HistoryStore& historyStore;
    LinePrinter print = stdoutPrinter();
    // Ends the application (QCoreApplication::quit, unless a test counts the calls).
    std::function<void()> quitApplication = [] { QCoreApplication::quit(); };
    // A Wayland session, where Vantalo sees only the input that reaches X11 applications.
    bool waylandSession = false;
};

// The top of the application: the tray icon and its menu, the long-lived controllers, the launch
// sequence, and what happens to a finished GIF.
class AppDelegate : public QObject
{
    Q_OBJECT
public:
    AppDelegate(AppServices services, std::unique_ptr<CaptureCoordinator> coordinator,
                std::unique_ptr<PreviewPresenter> previewPanel,
                std::unique_ptr<HistoryWindowPresenter> historyPanel,
                std::unique_ptr<TrimPresenter> trimWindow, QObject* parent = nullptr);
    ~AppDelegate() override;

    // Runs once the event loop has started.
    void setupApplication();
    // Hides every overlay and lets go of the shortcut; connected to QCoreApplication::aboutToQuit.
    void applicationWillTerminate();

    // Menu actions.
    void startRecording();
    void recordLastRegion();
    void stopRecording();
    // Pause Recording / Resume Recording, and `vantalo --pause`.
    void togglePause();
    void showHistory();
    // With `atUploadSettings`, the keyboard in the first of the credentials.
    void openPreferences(bool atUploadSettings = false);
    void showAbout();
    // Quit Vantalo: at once when nothing is under way; a recording is stopped first, and its GIF
    // (or one being written or fitted) finished and listed. A second Quit meanwhile exits at once.
    void quit();
    bool isQuitting() const { return m_quitting; }

    // `vantalo --toggle` acts exactly as a press of the shortcut; with `--last-region`, a capture
    // it starts goes straight to the last recorded region.
    void toggleCapture(bool lastRegion = false);

    void handleGifCreated(const QString& gifPath, RecordingEnd end);
    // Adds a finished GIF to the history and shows it in the panel.
    void keepAndShow(const QString& gifPath);
    void updateStatusIcon(bool recording);
    void showShortcutUnavailableAlert();
    // A recording that ended without a GIF, said where the user looks (one box, the latest line).
    void showRecordingFailedAlert(const QString& line);

    QMenu* menu() { return &m_menu; }
    QSystemTrayIcon* trayIcon() { return m_statusItem.get(); }
    PreferencesWindow* preferencesWindow() const { return m_preferencesWindow; }
    QMessageBox* shortcutAlert() const { return m_shortcutAlert; }
    QMessageBox* recordingFailedAlert() const { return m_recordingFailedAlert; }
    QMessageBox* aboutBox() const { return m_aboutBox; }
    CaptureCoordinator& captureCoordinator() { return *m_captureCoordinator; }

private:
    void setupStatusItem();
    void wireCoordinator();
    void rebuildMenu();
    QString currentShortcutLabel() const;
    void reportMissingTray();
    // Whether a GIF is being recorded, written or fitted.
    bool isBusy() const;
    void quitIfDone();

    AppServices m_services;
    std::unique_ptr<QSystemTrayIcon> m_statusItem;
    std::unique_ptr<CaptureCoordinator> m_captureCoordinator;
    std::unique_ptr<PreviewPresenter> m_previewPanelController;
    std::unique_ptr<HistoryWindowPresenter> m_historyPanelController;
    std::unique_ptr<TrimPresenter> m_trimPresenter;
    QPointer<PreferencesWindow> m_preferencesWindow;
    QPointer<QMessageBox> m_shortcutAlert;
    QPointer<QMessageBox> m_recordingFailedAlert;
    QPointer<QMessageBox> m_aboutBox;
    QMenu m_menu;
    StatusIconLook m_look = StatusIconLook::idle;
    bool m_quitting = false;
};

} // namespace vantalo
