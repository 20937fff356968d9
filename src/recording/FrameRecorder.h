#pragma once

#include "Frame.h"
#include "InputOverlay.h"
#include "common/Failure.h"

#include <QRectF>

#include <expected>
#include <functional>

namespace vantalo {

// What the capture flow needs of a screen recorder. Completions are always called later, on the
// GUI thread, exactly once per call.
class FrameRecorder
{
public:
    using StartDone = std::function<void(std::expected<void, Failure>)>;
    using StopDone = std::function<void(std::expected<void, Failure>)>;

    virtual ~FrameRecorder() = default;

    // `region` is relative to the display, origin at its top-left, in points; `displayName` is the
    // display it was chosen on, taken when it holds the region. A start while recording is ignored
    // (and completes successfully).
    virtual void startRecording(const QRectF& region, const QString& displayName, int frameRate,
                                double maxDurationSeconds, StartDone done) = 0;
    // Ends the recording once every frame so far has been handed to the sink.
    virtual void stopRecording(StopDone done) = 0;
    // Pauses the recording under way: the slots before now become frames, and no picture is taken
    // until the resume. The paused time is left out of the timeline and of the time limit; a stop
    // while paused ends the recording where the pause began.
    virtual void pauseRecording() = 0;
    // Goes on recording `region` (as given to the start; moved, never resized): the timeline
    // continues from the moment of the pause.
    virtual void resumeRecording(const QRectF& region) = 0;
    virtual bool isPaused() const = 0;

    // Output pixels a point of the region, read at each start: 2 (frames of twice its points) or
    // 1 (a pixel a point: on a 1× display the captured pixels, on a 2× one averaged down as they
    // are grabbed).
    int outputScale = 2;
    // The clicks and keys drawn into the frames, read at each start (where the recorder can see
    // them).
    InputShown inputShown;
    // The whole display as it was before Vantalo's overlays covered it, where the screen keeps no
    // pictures of covered windows (no compositor); null otherwise. The recording then starts once
    // the region shows its windows again (they repaint after the overlays go), at most 200 ms
    // later, so that it never begins with their blank backgrounds.
    QImage screenBefore;
    // Called on the GUI thread, once a recording, when the maximum duration has passed.
    std::function<void()> onMaxDurationReached;
    // Where every frame goes, oldest first, on the capture thread; read at each start, which fails
    // without one. A slot that repeats the frame before hands over the same image again (its pixels
    // shared, so `cacheKey()` is equal).
    std::function<void(const Frame& frame)> frameSink;
    // Asked on the capture thread before each picture: while it answers true the sink is behind,
    // and slots repeat the frame before instead of taking new pictures.
    std::function<bool()> frameSinkIsBehind;
};

} // namespace vantalo
