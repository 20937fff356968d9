#include "AppDelegate.h"

#include "hotkey/ShortcutLabel.h"
#include "settings/HotkeySettingsNotifier.h"
#include "settings/OutputPreferences.h"
#include "settings/PreferencesWindow.h"
#include "settings/ShortcutSettings.h"

#include <QAbstractButton>
#include <QApplication>
#include <QFile>
#include <QFileInfo>
#include <QGuiApplication>
#include <QLoggingCategory>
#include <QPushButton>
#include <QScreen>
#include <QTimer>

namespace vantalo {

Q_LOGGING_CATEGORY(lcApp, "vantalo.app", QtInfoMsg)

namespace {
// A tray host may dock the icon a moment after start; only then is a missing tray worth a word.
constexpr int kTrayGraceMs = 3000;
} // namespace

AppDelegate::AppDelegate(AppServices services, std::unique_ptr<CaptureCoordinator> coordinator,
                         std::unique_ptr<PreviewPresenter> previewPanel,
                         std::unique_ptr<HistoryWindowPresenter> historyPanel,
                         std::unique_ptr<TrimPresenter> trimWindow, QObject* parent)
    : QObject(parent), m_services(services), m_captureCoordinator(std::move(coordinator)),
      m_previewPanelController(std::move(previewPanel)), m_historyPanelController(std::move(historyPanel)),
      m_trimPresenter(std::move(trimWindow))
{
    // The defaults come first: the first menu already names the shortcut, even for a tray host
    // that shows it without asking for it again.
    registerShortcutDefaults(m_services.defaults);
    // The items are made anew every time the menu opens, so they always match the state.
    connect(&m_menu, &QMenu::aboutToShow, this, &AppDelegate::rebuildMenu);
    rebuildMenu();
}

AppDelegate::~AppDelegate()
{
    delete m_preferencesWindow.data();
    delete m_shortcutAlert.data();
    delete m_aboutBox.data();
}

void AppDelegate::setupApplication()
{
    setupStatusItem();
    if (!m_services.capturePermission.preflight()) {
        m_services.capturePermission.request();
    }
    wireCoordinator();

    QPointer self(this);
    m_historyPanelController->onSelectItem = [self](const GifHistoryItem& item) {
        if (self) {
            self->m_previewPanelController->show(self->m_services.historyStore.filePath(item), item.id);
        }
    };
    // A fit from the history runs in the panel, where its progress and its result are shown.
    m_historyPanelController->onFitItem = [self](const GifHistoryItem& item, qint64 budget) {
        if (self) {
            self->m_previewPanelController->show(self->m_services.historyStore.filePath(item), item.id);
            self->m_previewPanelController->fitShown(budget, false);
        }
    };
    // Copied from the panel, which says so.
    m_historyPanelController->onCopyItem = [self](const GifHistoryItem& item) {
        if (self) {
            self->m_previewPanelController->show(self->m_services.historyStore.filePath(item), item.id);
            self->m_previewPanelController->copyShown();
        }
    };
    m_historyPanelController->onTrimItem = [self](const GifHistoryItem& item) {
        if (self) {
            self->m_trimPresenter->open(self->m_services.historyStore.filePath(item));
        }
    };
    m_previewPanelController->onTrim = [self](const QString& path, const std::optional<QUuid>&) {
        if (self) {
            self->m_trimPresenter->open(path);
        }
    };
    m_previewPanelController->onOpenUploadSettings = [self] {
        if (self) {
            self->openPreferences(true);
        }
    };
    m_trimPresenter->onSaved = [self](const QString& path) {
        if (self) {
            self->keepAndShow(path);
        }
    };
    qCDebug(lcApp) << "launched";
}

void AppDelegate::setupStatusItem()
{
    m_statusItem = std::make_unique<QSystemTrayIcon>(statusIcon(StatusIconLook::idle));
    m_statusItem->setToolTip(QStringLiteral("Vantalo"));
    m_statusItem->setContextMenu(&m_menu);
    // A left click opens the same menu: the icon has nothing else to do.
    connect(m_statusItem.get(), &QSystemTrayIcon::activated, this,
            [this](QSystemTrayIcon::ActivationReason reason) {
                if (reason == QSystemTrayIcon::Trigger) {
                    m_menu.popup(QCursor::pos());
                }
            });
    m_statusItem->show();
    QTimer::singleShot(kTrayGraceMs, this, &AppDelegate::reportMissingTray);
}

void AppDelegate::reportMissingTray()
{
    if (QSystemTrayIcon::isSystemTrayAvailable()) {
        return;
    }
    const QString shortcut = currentShortcutLabel();
    const QString how =
        shortcut == CaptureCoordinator::toggleCommandLabel
            ? QStringLiteral("the command %1 (bind it to a key in your desktop's keyboard settings)")
                  .arg(shortcut)
            : QStringLiteral("the shortcut %1 or the command %2")
                  .arg(shortcut, CaptureCoordinator::toggleCommandLabel);
    m_services.print(QStringLiteral("No system tray found: Vantalo keeps running; record with ") + how);
}

void AppDelegate::wireCoordinator()
{
    QPointer self(this);
    m_captureCoordinator->onGifCreated = [self](const QString& path, RecordingEnd end) {
        if (self) {
            self->handleGifCreated(path, end);
        }
    };
    m_captureCoordinator->onRecordingStateChanged = [self](bool recording) {
        if (self) {
            self->updateStatusIcon(recording);
        }
    };
    m_captureCoordinator->onPausedChanged = [self](bool) {
        if (self) {
            self->updateStatusIcon(true);
        }
    };
    m_captureCoordinator->onHotkeyPermissionDenied = [self] {
        if (self) {
            self->showShortcutUnavailableAlert();
        }
    };
    m_captureCoordinator->onSelectionStarted = [self] {
        if (self) {
            self->m_previewPanelController->dismiss();
        }
    };
    m_captureCoordinator->onRecordingFailed = [self](const QString& line) {
        if (self) {
            self->showRecordingFailedAlert(line);
            self->quitIfDone();
        }
    };
    m_previewPanelController->onWorkFinished = [self] {
        if (self) {
            self->quitIfDone();
        }
    };
    m_captureCoordinator->registerHotkey();
    connect(&m_services.hotkeySettings, &HotkeySettingsNotifier::hotkeySettingsChanged, this,
            [this] { m_captureCoordinator->registerHotkey(); });
}

void AppDelegate::applicationWillTerminate()
{
    m_captureCoordinator->dismissOverlays();
}

QString AppDelegate::currentShortcutLabel() const
{
    return m_captureCoordinator->shortcutLabel();
}

void AppDelegate::rebuildMenu()
{
    m_menu.clear();
    if (m_captureCoordinator->state() != CaptureState::idle) {
        m_menu.addAction(QStringLiteral("Stop Recording"), this, &AppDelegate::stopRecording);
        if (m_captureCoordinator->state() == CaptureState::recording) {
            m_menu.addAction(m_captureCoordinator->isPaused() ? QStringLiteral("Resume Recording")
                                                              : QStringLiteral("Pause Recording"),
                             this, &AppDelegate::togglePause);
        }
    } else {
        m_menu.addAction(QStringLiteral("Record GIF"), this, &AppDelegate::startRecording);
        QAction* shortcutLine = m_menu.addAction(currentShortcutLabel());
        shortcutLine->setEnabled(false);
        m_menu.addAction(QStringLiteral("Record Last Region"), this, &AppDelegate::recordLastRegion)
            ->setEnabled(m_captureCoordinator->hasLastRegion());
    }
    m_menu.addSeparator();
    // No key beside these: a tray menu has no keyboard focus to take them from, and they would
    // promise what no key does.
    m_menu.addAction(QStringLiteral("History..."), this, &AppDelegate::showHistory);
    m_menu.addSeparator();
    m_menu.addAction(QStringLiteral("Preferences..."), this, [this] { openPreferences(); });
    m_menu.addSeparator();
    m_menu.addAction(QStringLiteral("About Vantalo"), this, &AppDelegate::showAbout);
    m_menu.addSeparator();
    m_menu.addAction(QStringLiteral("Quit Vantalo"), this, &AppDelegate::quit);
}

void AppDelegate::startRecording()
{
    m_captureCoordinator->beginRegionSelection();
}

void AppDelegate::stopRecording()
{
    if (m_captureCoordinator->state() == CaptureState::recording) {
        QMetaObject::invokeMethod(m_captureCoordinator.get(), &CaptureCoordinator::stopRecording,
                                  Qt::QueuedConnection);
    }
}

void AppDelegate::toggleCapture(bool lastRegion)
{
    if (lastRegion && m_captureCoordinator->state() == CaptureState::idle) {
        m_captureCoordinator->recordLastRegion();
    } else {
        m_captureCoordinator->handleHotkeyPress();
    }
}

void AppDelegate::togglePause()
{
    // After the menu (or the command's hand-over) has finished with its own event.
    QMetaObject::invokeMethod(m_captureCoordinator.get(), &CaptureCoordinator::togglePause,
                              Qt::QueuedConnection);
}

void AppDelegate::recordLastRegion()
{
    m_captureCoordinator->recordLastRegion();
}

void AppDelegate::showHistory()
{
    m_historyPanelController->show();
}

void AppDelegate::openPreferences(bool atUploadSettings)
{
    if (!m_preferencesWindow) {
        m_preferencesWindow = new PreferencesWindow(
            m_services.defaults, m_services.keychain, m_services.hotkeySettings,
            m_captureCoordinator->hasMoreShortcuts(),
            !m_services.waylandSession
                ? std::nullopt
                : std::optional(QStringLiteral(
                      "On Wayland, Vantalo sees the clicks and keys that reach X11 applications (all of "
                      "them where the desktop lets X11 applications read input, as KDE Plasma 6.1 can).")));
        m_preferencesWindow->setAttribute(Qt::WA_DeleteOnClose);
        m_preferencesWindow->setWindowIcon(applicationIcon());
        if (QScreen* screen = QGuiApplication::primaryScreen()) {
            QRect frame = m_preferencesWindow->frameGeometry();
            frame.moveCenter(screen->availableGeometry().center());
            m_preferencesWindow->move(frame.topLeft());
        }
    }
    // After the menu has finished with its own event.
    QPointer window = m_preferencesWindow;
    QTimer::singleShot(0, this, [window, atUploadSettings] {
        if (window) {
            window->show();
            window->raise();
            window->activateWindow();
            if (atUploadSettings) {
                window->accessKeyIdField()->setFocus();
            }
        }
    });
}

void AppDelegate::showAbout()
{
    if (!m_aboutBox) {
        m_aboutBox =
            new QMessageBox(QMessageBox::NoIcon, QStringLiteral("About Vantalo"), QString(), QMessageBox::Ok);
        m_aboutBox->setAttribute(Qt::WA_DeleteOnClose);
        m_aboutBox->setIconPixmap(applicationIcon().pixmap(64, 64));
        m_aboutBox->setTextFormat(Qt::RichText);
        m_aboutBox->setText(
            QStringLiteral("<b>Vantalo</b><br>Version %1").arg(QCoreApplication::applicationVersion()));
        m_aboutBox->setInformativeText(
            QStringLiteral("Records a region of the screen as an animated GIF.<br><br>"
                           "Free software under the GNU General Public License, version 3 or later."));
    }
    m_aboutBox->show();
    m_aboutBox->raise();
    m_aboutBox->activateWindow();
}

void AppDelegate::updateStatusIcon(bool recording)
{
    m_look = !recording                         ? StatusIconLook::idle
             : m_captureCoordinator->isPaused() ? StatusIconLook::paused
                                                : StatusIconLook::recording;
    if (m_statusItem) {
        m_statusItem->setIcon(statusIcon(m_look));
    }
}

void AppDelegate::keepAndShow(const QString& gifPath)
{
    auto item = m_services.historyStore.addGif(gifPath);
    if (item) {
        m_previewPanelController->show(m_services.historyStore.filePath(*item), item->id);
    } else {
        m_services.print(QStringLiteral("Failed to save GIF to history: ") + item.error().description);
        m_previewPanelController->show(gifPath, std::nullopt);
    }
}

bool AppDelegate::isBusy() const
{
    const CaptureState state = m_captureCoordinator->state();
    return state == CaptureState::recording || state == CaptureState::encoding ||
           m_previewPanelController->isWorking();
}

void AppDelegate::quit()
{
    if (m_quitting || !isBusy()) {
        m_services.quitApplication();
        return;
    }
    m_quitting = true;
    m_services.print(QStringLiteral("Quitting once the GIF is saved (Quit again to quit at once)"));
    if (m_captureCoordinator->state() == CaptureState::recording) {
        stopRecording();
    }
}

void AppDelegate::quitIfDone()
{
    if (m_quitting && !isBusy()) {
        m_services.quitApplication();
    }
}

void AppDelegate::handleGifCreated(const QString& gifPath, RecordingEnd end)
{
    keepAndShow(gifPath);
    if (end == RecordingEnd::timeLimit) {
        m_previewPanelController->tell(
            QStringLiteral("Stopped at %1 s").arg(CaptureCoordinator::maxDurationSeconds));
    }
    // The size every recording is fitted under, if one is set (a value that cannot be used was
    // reported when the recording started).
    if (const qint64 budget = readOutputPreferences(m_services.defaults).preferences.fitUnderBytes;
        budget > 0) {
        m_previewPanelController->fitShown(budget, true);
    }
    quitIfDone();
}

void AppDelegate::showShortcutUnavailableAlert()
{
    if (m_shortcutAlert) {
        m_shortcutAlert->raise();
        return;
    }
    const QString text =
        QStringLiteral(
            "Vantalo could not register the global shortcut %1. Another application may already use it, "
            "or this desktop session does not allow global shortcuts. Choose another shortcut in "
            "Preferences, or bind the command \u201Cvantalo --toggle\u201D in your desktop's "
            "keyboard settings.")
            .arg(currentShortcutLabel());
    // The heading is in the box too: a desktop without window decorations never shows the title.
    const QString heading = QStringLiteral("Shortcut Unavailable");
    m_shortcutAlert = new QMessageBox(QMessageBox::Warning, heading, heading);
    m_shortcutAlert->setInformativeText(text);
    m_shortcutAlert->setAttribute(Qt::WA_DeleteOnClose);
    QPushButton* openPreferencesButton =
        m_shortcutAlert->addButton(QStringLiteral("Open Preferences"), QMessageBox::AcceptRole);
    m_shortcutAlert->addButton(QStringLiteral("Later"), QMessageBox::RejectRole);
    m_shortcutAlert->setDefaultButton(openPreferencesButton);
    QPointer<QMessageBox> alert = m_shortcutAlert;
    connect(m_shortcutAlert, &QMessageBox::finished, this, [this, alert, openPreferencesButton] {
        if (alert && alert->clickedButton() == openPreferencesButton) {
            openPreferences();
        }
    });
    m_shortcutAlert->open();
}

void AppDelegate::showRecordingFailedAlert(const QString& line)
{
    const QString heading = QStringLiteral("Recording Failed");
    if (!m_recordingFailedAlert) {
        m_recordingFailedAlert = new QMessageBox(QMessageBox::Warning, heading, heading, QMessageBox::Ok);
        m_recordingFailedAlert->setAttribute(Qt::WA_DeleteOnClose);
    }
    m_recordingFailedAlert->setInformativeText(line);
    m_recordingFailedAlert->open();
    m_recordingFailedAlert->raise();
}

} // namespace vantalo
