#include "CaptureCoordinator.h"

#include "RecordingToolbarState.h"
#include "common/RegionGeometry.h"
#include "hotkey/HotkeyRegistrar.h"
#include "hotkey/ShortcutLabel.h"
#include "recording/CodecThreadPool.h"
#include "recording/GifFile.h"
#include "settings/OutputPreferences.h"
#include "settings/ShortcutSettings.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFutureWatcher>
#include <QLoggingCategory>
#include <QPointer>

namespace vantalo {

Q_LOGGING_CATEGORY(lcCapture, "vantalo.capture", QtInfoMsg)

namespace {
const char* stateName(CaptureState state)
{
    switch (state) {
    case CaptureState::idle:
        return "idle";
    case CaptureState::selectingRegion:
        return "selectingRegion";
    case CaptureState::readyToRecord:
        return "readyToRecord";
    case CaptureState::recording:
        return "recording";
    case CaptureState::encoding:
        return "encoding";
    }
    return "?";
}
} // namespace

CaptureCoordinator::CaptureCoordinator(CaptureCollaborators collaborators, UserDefaults& defaults,
                                       ScreenCapturePermission& permission, LinePrinter print,
                                       QString temporaryDirectory)
    : m_c(std::move(collaborators)), m_defaults(defaults), m_permission(permission),
      m_print(std::move(print)),
      m_temporaryDirectory(temporaryDirectory.isEmpty() ? QDir::tempPath() : std::move(temporaryDirectory))
{
    QPointer self(this);
    m_c.screenRecorder->onMaxDurationReached = [self] {
        if (self) {
            self->later(&CaptureCoordinator::stopAtTheLimit);
        }
    };
    m_c.toolbarController->toolbarState().setLimitSeconds(maxDurationSeconds);
    m_countdownTimer.setInterval(1000);
    connect(&m_countdownTimer, &QTimer::timeout, this, &CaptureCoordinator::countDown);
}

CaptureCoordinator::~CaptureCoordinator() = default;

void CaptureCoordinator::setState(CaptureState state)
{
    qCDebug(lcCapture, "state %s -> %s", stateName(m_state), stateName(state));
    m_state = state;
}

void CaptureCoordinator::later(void (CaptureCoordinator::*operation)())
{
    QMetaObject::invokeMethod(this, operation, Qt::QueuedConnection);
}

void CaptureCoordinator::registerHotkey()
{
    const StoredShortcut stored = readStoredShortcut(m_defaults);
    const Shortcut shortcut = stored.shortcut;
    if (stored.fellBack) {
        m_print(QStringLiteral("The shortcut in the settings cannot be used; %1 is used instead")
                    .arg(nativeShortcutLabel(shortcut)));
    }
    QPointer self(this);
    m_c.hotkeyManager->onPermissionDenied = [self] {
        if (self && self->onHotkeyPermissionDenied) {
            self->onHotkeyPermissionDenied();
        }
    };
    m_c.hotkeyManager->registerHotkey(shortcut, [self] {
        if (self) {
            self->handleHotkeyPress();
        }
    });
    const auto registerMore = [&](HotkeyRegistrar* registrar, ShortcutAction action, auto handler) {
        if (!registrar) {
            return;
        }
        const Shortcut more = readShortcut(m_defaults, action);
        registrar->onPermissionDenied = [self, action, more] {
            if (self) {
                self->m_print(QStringLiteral("%1 has no shortcut: %2 is taken by another application")
                                  .arg(shortcutActionName(action), nativeShortcutLabel(more)));
            }
        };
        registrar->registerHotkey(more, [self, handler] {
            if (self) {
                (self->*handler)();
            }
        });
    };
    registerMore(m_c.pauseHotkey.get(), ShortcutAction::pauseRecording, &CaptureCoordinator::togglePause);
    registerMore(m_c.lastRegionHotkey.get(), ShortcutAction::recordLastRegion,
                 &CaptureCoordinator::recordLastRegion);
}

QString CaptureCoordinator::pauseShortcutLabel() const
{
    return m_c.pauseHotkey ? displayShortcutLabel(readShortcut(m_defaults, ShortcutAction::pauseRecording))
                           : QString();
}

QString CaptureCoordinator::lastRegionShortcutLabel() const
{
    return m_c.lastRegionHotkey
               ? displayShortcutLabel(readShortcut(m_defaults, ShortcutAction::recordLastRegion))
               : QString();
}

QString CaptureCoordinator::shortcutLabel() const
{
    if (const auto trigger = m_c.hotkeyManager->desktopTrigger()) {
        return trigger->isEmpty() ? toggleCommandLabel : *trigger;
    }
    return displayShortcutLabel(menuShortcut(m_defaults));
}

void CaptureCoordinator::handleHotkeyPress()
{
    switch (m_state) {
    case CaptureState::idle:
        beginRegionSelection();
        break;
    case CaptureState::selectingRegion:
    case CaptureState::readyToRecord:
        if (!cancelCountdown()) {
            cancelCapture();
        }
        break;
    case CaptureState::recording:
        later(&CaptureCoordinator::stopRecording);
        break;
    case CaptureState::encoding:
        break;
    }
}

void CaptureCoordinator::beginRegionSelection()
{
    if (m_state != CaptureState::idle) {
        return;
    }
    setState(CaptureState::selectingRegion);
    if (onSelectionStarted) {
        onSelectionStarted();
    }
    QPointer self(this);
    m_c.regionSelector->onRegionSelected = [self](const QRectF& region, const DisplayInfo& display) {
        if (self) {
            self->handleRegionSelected(region, display);
        }
    };
    m_c.regionSelector->onCancelled = [self] {
        if (self) {
            self->cancelCapture();
        }
    };
    m_c.regionSelector->show(recallLastRegion(m_defaults, m_c.regionSelector->displays()));
}

bool CaptureCoordinator::hasLastRegion()
{
    return recallLastRegion(m_defaults, m_c.regionSelector->displays()).has_value();
}

void CaptureCoordinator::recordLastRegion()
{
    if (m_state != CaptureState::idle) {
        return;
    }
    const std::optional<LastRegion> last = recallLastRegion(m_defaults, m_c.regionSelector->displays());
    if (!last) {
        beginRegionSelection();
        return;
    }
    setState(CaptureState::selectingRegion);
    if (onSelectionStarted) {
        onSelectionStarted();
    }
    handleRegionSelected(last->region, last->display);
}

void CaptureCoordinator::handleRegionSelected(const QRectF& region, const DisplayInfo& display)
{
    m_selectedRegion = region;
    m_selectedScreen = display;
    setState(CaptureState::readyToRecord);
    m_readyPayload = std::pair(region, display);

    m_c.regionSelector->dismiss();

    QPointer self(this);
    m_c.regionPreview->show(display, region);
    m_c.regionPreview->onRegionChanged = [self](const QRectF& changed) {
        if (self) {
            self->handleRegionChanged(changed);
        }
    };
    m_c.regionPreview->onCancelled = [self] {
        if (self && !self->cancelCountdown()) {
            self->cancelCapture();
        }
    };
    m_c.regionPreview->onConfirmed = [self] {
        if (self) {
            self->later(&CaptureCoordinator::requestStart);
        }
    };

    m_c.toolbarController->onStart = [self] {
        if (self) {
            self->later(&CaptureCoordinator::requestStart);
        }
    };
    m_c.toolbarController->onRestart = [self] {
        if (self) {
            self->later(&CaptureCoordinator::restartRecording);
        }
    };
    m_c.toolbarController->onStop = [self] {
        if (self) {
            self->later(&CaptureCoordinator::stopRecording);
        }
    };
    m_c.toolbarController->onPauseResume = [self] {
        if (self) {
            self->later(&CaptureCoordinator::togglePause);
        }
    };
    m_c.recordingBorder->onMoved = [self](const QRectF& moved) {
        if (self) {
            self->handleRegionMoved(moved);
        }
    };
    m_c.toolbarController->show(region, display.frame);
}

void CaptureCoordinator::handleRegionChanged(const QRectF& region)
{
    m_selectedRegion = region;
    m_c.toolbarController->follow(region);
}

void CaptureCoordinator::handleRegionMoved(const QRectF& region)
{
    if (m_state != CaptureState::recording || !m_paused) {
        return;
    }
    // Only the place changes: the recorder takes it at the resume, at the GIF's size.
    m_selectedRegion.moveTopLeft(region.topLeft());
    m_c.toolbarController->follow(m_selectedRegion);
}

void CaptureCoordinator::togglePause()
{
    if (m_state != CaptureState::recording || !m_selectedScreen) {
        return;
    }
    if (!m_paused) {
        m_c.screenRecorder->pauseRecording();
        setPaused(true);
        return;
    }
    m_c.screenRecorder->resumeRecording(displayLocalRect(m_selectedRegion, m_selectedScreen->frame));
    storeLastRegion(m_defaults, {m_selectedRegion, *m_selectedScreen});
    setPaused(false);
}

void CaptureCoordinator::setPaused(bool paused)
{
    if (paused == m_paused) {
        return;
    }
    m_paused = paused;
    qCDebug(lcCapture, paused ? "recording paused" : "recording resumed");
    m_c.toolbarController->toolbarState().setPaused(paused);
    m_c.recordingBorder->setPaused(paused);
    if (onPausedChanged) {
        onPausedChanged(paused);
    }
}

void CaptureCoordinator::requestStart()
{
    if (m_state != CaptureState::readyToRecord || m_starting || cancelCountdown()) {
        return;
    }
    m_countdownLeft = readOutputPreferences(m_defaults).preferences.countdownSeconds;
    if (m_countdownLeft <= 0) {
        startRecording();
        return;
    }
    m_c.regionPreview->showCountdown(m_countdownLeft);
    m_countdownTimer.start();
}

void CaptureCoordinator::countDown()
{
    if (--m_countdownLeft > 0) {
        m_c.regionPreview->showCountdown(m_countdownLeft);
        return;
    }
    cancelCountdown();
    startRecording();
}

bool CaptureCoordinator::cancelCountdown()
{
    if (m_countdownLeft <= 0) {
        return false;
    }
    m_countdownTimer.stop();
    m_countdownLeft = 0;
    m_c.regionPreview->showCountdown(0);
    return true;
}

void CaptureCoordinator::startRecording()
{
    if (m_state != CaptureState::readyToRecord || m_starting) {
        return;
    }
    if (!m_permission.preflight()) {
        m_permission.request();
        return;
    }
    if (!m_selectedScreen) {
        return;
    }
    m_c.screenRecorder->screenBefore = m_c.regionPreview->stillOf(m_selectedScreen->name);
    m_c.regionPreview->hide();
    const QRectF captureRect = displayLocalRect(m_selectedRegion, m_selectedScreen->frame);
    // The output settings apply from each start.
    const StoredOutputPreferences output = readOutputPreferences(m_defaults);
    for (const QString& problem : output.problems) {
        m_print(problem);
    }
    m_frameRate = output.preferences.frameRate;
    m_end = RecordingEnd::stoppedByUser;
    m_c.screenRecorder->outputScale = output.preferences.scale;
    InputShown shown{
        output.preferences.showClicks == 1, static_cast<KeysShown>(output.preferences.showKeys), {}};
    for (const ShortcutAction action : allShortcutActions) {
        shown.hiddenKeys << inputKeyLabel(readShortcut(m_defaults, action));
    }
    m_c.screenRecorder->inputShown = shown;
    m_starting = true;
    // Frames go straight to the encoder while recording, so Stop only has the tail left to do.
    m_session = std::shared_ptr<EncodingSession>(m_c.gifEncoder->openSession());
    m_c.screenRecorder->frameSink = [session = m_session](const Frame& frame) { session->addFrame(frame); };
    m_c.screenRecorder->frameSinkIsBehind = [session = m_session] { return session->isBehind(); };
    QPointer self(this);
    m_c.screenRecorder->startRecording(
        captureRect, m_selectedScreen->name, m_frameRate, maxDurationSeconds,
        [self](std::expected<void, Failure> started) {
            if (!self) {
                return;
            }
            self->m_starting = false;
            if (self->m_state != CaptureState::readyToRecord) {
                // Cancelled while the recorder was starting: its
                // frames belong to nothing the user still wants.
                if (started) {
                    self->m_c.screenRecorder->stopRecording([](auto) {});
                }
                self->discardSession();
                return;
            }
            if (!started) {
                self->discardSession();
                self->reportFailure(QStringLiteral("Failed to start recording: ") +
                                    started.error().description);
                self->cancelCapture();
                return;
            }
            self->setState(CaptureState::recording);
            self->m_readyPayload.reset();
            storeLastRegion(self->m_defaults, {self->m_selectedRegion, *self->m_selectedScreen});
            self->reportRecording(true);
            self->m_c.toolbarController->toolbarState().startTimer();
            self->m_c.recordingBorder->show(self->m_selectedRegion, self->m_selectedScreen->frame);
        });
}

void CaptureCoordinator::stopAtTheLimit()
{
    if (m_state == CaptureState::recording) {
        m_end = RecordingEnd::timeLimit;
        stopRecording();
    }
}

void CaptureCoordinator::stopRecording()
{
    if (m_state != CaptureState::recording) {
        return;
    }
    setState(CaptureState::encoding);
    m_c.recordingBorder->hide();
    setPaused(false);
    m_c.toolbarController->toolbarState().stopTimer();
    m_c.toolbarController->hide();

    QPointer self(this);
    m_c.screenRecorder->stopRecording([self](std::expected<void, Failure> stopped) {
        if (!self) {
            return;
        }
        std::shared_ptr<EncodingSession> session = std::move(self->m_session);
        self->m_c.screenRecorder->frameSink = nullptr;
        self->m_c.screenRecorder->frameSinkIsBehind = nullptr;
        if (!stopped) {
            self->reportFailure(QStringLiteral("Failed to encode GIF: ") + stopped.error().description);
            self->finishInIdle();
            return;
        }
        if (!session || session->frameCount() == 0) {
            self->reportFailure(QStringLiteral("No frames captured"));
            self->finishInIdle();
            return;
        }
        self->encodeAndWrite(std::move(session));
    });
}

void CaptureCoordinator::encodeAndWrite(std::shared_ptr<EncodingSession> session)
{
    // The worker gets the session only; it touches nothing of ours. The watcher dies with the
    // coordinator, so a result that comes back to nobody is dropped.
    using Result = std::expected<QString, Failure>;
    auto* watcher = new QFutureWatcher<Result>(this);
    connect(watcher, &QFutureWatcher<Result>::finished, this, [this, watcher, end = m_end] {
        watcher->deleteLater();
        const Result written = watcher->result();
        if (!written) {
            reportFailure(QStringLiteral("Failed to encode GIF: ") + written.error().description);
            finishInIdle();
            return;
        }
        finishInIdle();
        if (onGifCreated) {
            onGifCreated(*written, end);
        }
    });
    watcher->setFuture(runOnCodecThreads(
        [session = std::move(session), dir = m_temporaryDirectory, delay = 1.0 / m_frameRate]() -> Result {
            auto gif = session->finish(delay);
            if (!gif) {
                return std::unexpected(gif.error());
            }
            return writeGifFile(*gif, dir);
        }));
}

void CaptureCoordinator::restartRecording()
{
    if (m_state != CaptureState::recording || !m_selectedScreen) {
        return;
    }
    QPointer self(this);
    m_c.screenRecorder->stopRecording([self](auto) {
        // The frames so far are dropped, and so is a failure to stop.
        if (!self || self->m_state != CaptureState::recording) {
            return;
        }
        self->m_c.recordingBorder->hide();
        self->setPaused(false);
        auto& toolbarState = self->m_c.toolbarController->toolbarState();
        toolbarState.stopTimer();
        toolbarState.setElapsedSeconds(0);
        self->discardSession();
        self->setState(CaptureState::readyToRecord);
        self->m_readyPayload = std::pair(self->m_selectedRegion, *self->m_selectedScreen);
        self->startRecording();
    });
}

void CaptureCoordinator::discardSession()
{
    m_session.reset();
    m_c.screenRecorder->frameSink = nullptr;
    m_c.screenRecorder->frameSinkIsBehind = nullptr;
}

void CaptureCoordinator::cancelCapture()
{
    cancelCountdown();
    discardSession();
    m_c.regionSelector->dismiss();
    m_c.toolbarController->hide();
    m_c.recordingBorder->hide();
    setPaused(false);
    m_c.regionPreview->hide();
    setState(CaptureState::idle);
    m_readyPayload.reset();
    reportRecording(false);
}

void CaptureCoordinator::finishInIdle()
{
    setState(CaptureState::idle);
    reportRecording(false);
}

void CaptureCoordinator::reportFailure(const QString& line)
{
    m_print(line);
    if (onRecordingFailed) {
        onRecordingFailed(line);
    }
}

void CaptureCoordinator::reportRecording(bool recording)
{
    if (onRecordingStateChanged) {
        onRecordingStateChanged(recording);
    }
}

void CaptureCoordinator::dismissOverlays()
{
    m_c.hotkeyManager->unregisterHotkey();
    for (HotkeyRegistrar* more : {m_c.pauseHotkey.get(), m_c.lastRegionHotkey.get()}) {
        if (more) {
            more->unregisterHotkey();
        }
    }
    m_c.regionSelector->dismiss();
    m_c.toolbarController->hide();
    m_c.recordingBorder->hide();
    m_c.regionPreview->hide();
}

} // namespace vantalo
