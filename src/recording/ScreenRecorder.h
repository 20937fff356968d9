#pragma once

// The route of a frame, from the screen to the panel:
//
//   CaptureBackend            grabs the region: XShm on X11 (platform/x11), a PipeWire stream
//        |                    from the desktop portal on Wayland (platform/portal)
//        v
//   ScreenRecorder            a capture thread, one slot every 1/rate s; a late slot repeats
//        |  frameSink         the picture before
//        v
//   GifEncodingSession        encodes each frame as it comes (encodeFrame: differences against
//        |  finish()          the frame before, quantises, doubles, compresses; FrameEncoding.h)
//        v                    and assembles the GIF at the stop (GifWriter.h)
//   writeGifFile              "vantalo_<seconds>.gif" in the temporary directory (GifFile.h)
//        |  CaptureCoordinator::onGifCreated
//        v
//   GifHistoryStore::addGif   moves it into the history (history/)
//        |
//        v
//   PreviewPanelController    shows it, with Upload, Copy, Fit and Delete (sharing/)
//
// The coordinator (capture/CaptureCoordinator) drives the states and wires the stages together;
// a GIF made again from a finished one (fit, trim) goes through GifRecoder instead.

#include "CaptureBackend.h"
#include "FrameRecorder.h"
#include "InputSource.h"
#include "common/Console.h"

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>

namespace vantalo {

// What one recording achieved, for the capture benchmark and the log.
struct CaptureStats
{
    long long frames = 0;        // slots of the timeline written as frames
    long long pictures = 0;      // of them, new pictures of the screen; the others repeat the one before
    long long late = 0;          // pictures begun more than a quarter period after their slot
    long long encoderBehind = 0; // slots repeated because the frame sink was behind
    long long failedGrabs = 0;   // grabs that gave no picture (their slots repeat the one before)
    long long sharedFrames = 0;  // pictures identical to the one before, stored once
    double grabMsTotal = 0;      // time spent inside the backend's grab
    double threadCpuMs = 0;      // CPU time of the capture thread
    double seconds = 0;          // from the first slot to the stop
    long long sourceFrames = -1; // frames a stream source sent meanwhile (-1: not a stream)
};

// Captures one region of one display as frames at a steady rate until it is told to stop.
// Lives on the GUI thread; each recording runs on a capture thread of its own, which owns the
// frame list until the stop joins it.
//
// Every slot of the timeline (one a 1/rate s, from the start to the stop) becomes a frame, so the
// GIF lasts as long as the recording whatever the load. A slot gets a new picture when the
// capture thread reaches it in time and the frame sink keeps up; otherwise it repeats the picture
// before, which the encoder stores as a frame with nothing changed. The capture thread never waits
// for the sink: while the sink is behind it takes no pictures, so memory stays bounded. A pause
// stops the timeline: the frame before it is followed by the first picture after the resume.
class ScreenRecorder final : public QObject, public FrameRecorder
{
    Q_OBJECT
public:
    // Device pixels a point on the named display (as the windows see it).
    using PixelRatio = std::function<double(const QString& displayName)>;
    // Each screen's own, as the windows see it: a laptop at 2× beside a monitor at 1×.
    static double screenPixelRatio(const QString& displayName);
    ScreenRecorder(std::unique_ptr<CaptureBackend> backend, PixelRatio devicePixelRatio,
                   LinePrinter print = stdoutPrinter());
    ~ScreenRecorder() override;

    void startRecording(const QRectF& region, const QString& displayName, int frameRate,
                        double maxDurationSeconds, StartDone done) override;
    void stopRecording(StopDone done) override;
    void pauseRecording() override;
    void resumeRecording(const QRectF& region) override;
    bool isPaused() const override { return m_paused; }

    // Where the clicks and keys of recordings that show them come from.
    void setInputSource(std::unique_ptr<InputSource> source) { m_input = std::move(source); }

    bool isRecording() const { return m_isRecording.load(); }
    // The time recorded so far, pauses left out.
    double recordedSeconds() const;
    bool isDurationTimerActive() const { return m_durationTimer.isActive(); }
    CaptureStats lastStats() const { return m_lastStats; }

private:
    struct Job;
    // On the capture thread, before the timeline starts: grabs until the region no longer shows
    // the bare backgrounds of windows that have not repainted since the overlays went (compared
    // with `before`, the region before them), for at most 200 ms.
    static void waitForRepaints(CaptureStream& stream, const QImage& before, Job& job);
    void startDurationTimer(quint64 generation);
    void checkDuration();
    void handleStreamError(const std::shared_ptr<Job>& job, const QString& description);
    void finishJob();

    void stopInput();

    std::unique_ptr<CaptureBackend> m_backend;
    std::unique_ptr<InputSource> m_input;
    PixelRatio m_devicePixelRatio;
    LinePrinter m_print;

    std::atomic<bool> m_isRecording = false;
    int m_frameRate = 15;
    double m_maxDurationSeconds = 30.0;
    std::optional<QElapsedTimer> m_startTime; // since the start or the last resume; none while paused
    double m_recordedBefore = 0;              // seconds recorded before that
    bool m_paused = false;
    QTimer m_durationTimer;
    double m_timerMaxDuration = 0;
    quint64 m_generation = 0;
    bool m_starting = false;
    std::shared_ptr<Job> m_job;
    CaptureStats m_lastStats;
};

} // namespace vantalo
