#pragma once

#include "CaptureCollaborators.h"
#include "common/Console.h"
#include "common/Geometry.h"
#include "recording/FrameEncoder.h"
#include "recording/FrameRecorder.h"

#include <QObject>
#include <QRectF>
#include <QString>
#include <QTimer>

#include <expected>
#include <functional>
#include <memory>
#include <optional>

namespace vantalo {

class HotkeyRegistrar;
class UserDefaults;

// How a recording ended.
enum class RecordingEnd
{
    stoppedByUser, // the toolbar, the shortcut, the menu or `vantalo --toggle`
    timeLimit,     // the 30 seconds were up
};

enum class CaptureState
{
    idle,
    selectingRegion,
    readyToRecord,
    recording,
    encoding,
};

// Everything that takes part in one capture. The coordinator owns all of it; a recording's
// encoding session is shared with the worker that finishes it, which may outlive the coordinator.
struct CaptureCollaborators
{
    std::unique_ptr<HotkeyRegistrar> hotkeyManager;
    std::unique_ptr<FrameRecorder> screenRecorder;
    std::shared_ptr<const FrameEncoder> gifEncoder;
    std::unique_ptr<RegionSelector> regionSelector;
    std::unique_ptr<ToolbarPresenter> toolbarController;
    std::unique_ptr<BorderPresenter> recordingBorder;
    std::unique_ptr<RegionAdjuster> regionPreview;
    // Shortcuts of their own for Pause / Resume and Record Last Region, where the platform lets
    // Vantalo have more than one (none otherwise: `vantalo --pause` and the menu remain).
    std::unique_ptr<HotkeyRegistrar> pauseHotkey;
    std::unique_ptr<HotkeyRegistrar> lastRegionHotkey;
};

// The state machine of one recording, from the shortcut to the finished file. Lives on the GUI
// thread; only encoding and writing the file run on a worker.
class CaptureCoordinator : public QObject
{
    Q_OBJECT
public:
    static constexpr double maxDurationSeconds = 30.0;

    CaptureCoordinator(CaptureCollaborators collaborators, UserDefaults& defaults,
                       ScreenCapturePermission& permission, LinePrinter print = stdoutPrinter(),
                       QString temporaryDirectory = {});
    ~CaptureCoordinator() override;

    CaptureState state() const { return m_state; }
    // The region and display as they were when the region was chosen (readyToRecord only).
    std::optional<std::pair<QRectF, DisplayInfo>> readyToRecordPayload() const { return m_readyPayload; }
    QRectF selectedRegion() const { return m_selectedRegion; }
    std::optional<DisplayInfo> selectedScreen() const { return m_selectedScreen; }

    // Reads the shortcuts from the settings and (re)registers them.
    void registerHotkey();
    // How the user starts a capture without the menu, as the menu shows it: the registered
    // shortcut, the keys the desktop bound instead, or the command where the desktop lets no
    // application have a global shortcut.
    QString shortcutLabel() const;
    static inline const QString toggleCommandLabel = QStringLiteral("\u201Cvantalo --toggle\u201D");
    // What a press of the shortcut does in the current state.
    void handleHotkeyPress();
    void beginRegionSelection();
    // Straight to the last recorded region with its toolbar, as if it had just been chosen; the
    // selection overlay where there is none (or its display is gone).
    void recordLastRegion();
    bool hasLastRegion();
    void stopRecording();
    // Pauses the recording under way, or resumes it (from where the region was moved to meanwhile).
    void togglePause();
    bool isPaused() const { return m_paused; }
    // The keys of Pause / Resume as the menu shows them; empty where there is no such shortcut.
    QString pauseShortcutLabel() const;
    QString lastRegionShortcutLabel() const;
    // Whether the platform gives Pause / Resume and Record Last Region shortcuts of their own.
    bool hasMoreShortcuts() const { return m_c.pauseHotkey != nullptr; }
    void dismissOverlays();

    FrameRecorder& screenRecorder() { return *m_c.screenRecorder; }

    // With how the recording ended: the user's stop, or the time limit.
    std::function<void(const QString& gifPath, RecordingEnd end)> onGifCreated;
    std::function<void(bool recording)> onRecordingStateChanged;
    std::function<void(bool paused)> onPausedChanged;
    // A new region is about to be chosen: whatever is on screen of an earlier GIF goes, before it
    // can stand in the region or be recorded.
    std::function<void()> onSelectionStarted;
    std::function<void()> onHotkeyPermissionDenied;
    // A recording the user asked for ended without a GIF; the line says why (it is printed too).
    std::function<void(const QString& line)> onRecordingFailed;

private:
    void handleRegionSelected(const QRectF& region, const DisplayInfo& display);
    void handleRegionChanged(const QRectF& region);
    void handleRegionMoved(const QRectF& region);
    void setPaused(bool paused);
    // Start or Return: the countdown of the settings, then the recording; during the countdown,
    // Start again (as Escape and the shortcut) cancels it.
    void requestStart();
    void countDown();
    // Returns whether there was a countdown to cancel.
    bool cancelCountdown();
    void startRecording();
    void stopAtTheLimit();
    void restartRecording();
    void cancelCapture();
    void encodeAndWrite(std::shared_ptr<EncodingSession> session);
    void discardSession();
    void finishInIdle();
    void setState(CaptureState state);
    void reportRecording(bool recording);
    void reportFailure(const QString& line);
    // Runs `operation` on a later turn of the event loop, if the coordinator still exists then.
    void later(void (CaptureCoordinator::*operation)());

    CaptureCollaborators m_c;
    UserDefaults& m_defaults;
    ScreenCapturePermission& m_permission;
    LinePrinter m_print;
    QString m_temporaryDirectory;

    CaptureState m_state = CaptureState::idle;
    std::optional<std::pair<QRectF, DisplayInfo>> m_readyPayload;
    QRectF m_selectedRegion;
    std::optional<DisplayInfo> m_selectedScreen;
    // Set while a recorder start is awaited, so a second Start in that gap does nothing.
    bool m_starting = false;
    bool m_paused = false;
    int m_countdownLeft = 0; // seconds, while counting down
    QTimer m_countdownTimer;
    int m_frameRate = 15; // of the recording under way
    RecordingEnd m_end = RecordingEnd::stoppedByUser;
    // The GIF of the running recording, encoded as its frames arrive.
    std::shared_ptr<EncodingSession> m_session;
};

} // namespace vantalo
