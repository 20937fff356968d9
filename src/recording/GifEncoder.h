#pragma once

#include "FrameEncoder.h"
#include "FrameEncoding.h"

#include <QFuture>

namespace vantalo {

// Writes frames as one GIF that loops for ever, every frame shown for the given delay. Frames are
// encoded in parallel on every core; the file is assembled in order.
class GifEncoder final : public FrameEncoder
{
public:
    explicit GifEncoder(QuantizerSettings settings = {}) : m_settings(settings) {}

    // The whole list at once (the benchmarks and the tests compare the sessions with it).
    std::expected<QByteArray, Failure> encode(const FrameList& frames, double delaySeconds) const;
    std::unique_ptr<EncodingSession> openSession() const override;
    const QuantizerSettings& settings() const { return m_settings; }

private:
    QuantizerSettings m_settings;
};

// The same GIF, built while the frames are still being captured: each frame is handed to the
// thread pool as it arrives (compared with the one before it), and kept only in its compressed
// form. `finish` waits for the frames still being encoded and writes the file.
//
// Memory stays bounded whatever the machine: with `maxWaitingFrames` frames not yet encoded the
// session is behind, and the recorder repeats frames (which cost nothing here) until it catches
// up. A 1920 × 1080 screen keeps up on two idle cores; a busy machine gets fewer new pictures,
// never a shorter GIF.
class GifEncodingSession final : public EncodingSession
{
public:
    static constexpr int defaultMaxWaitingFrames = 8;

    explicit GifEncodingSession(QuantizerSettings settings = {},
                                int maxWaitingFrames = defaultMaxWaitingFrames)
        : m_settings(settings), m_maxWaiting(std::max(1, maxWaitingFrames))
    {
    }
    ~GifEncodingSession() override;

    GifEncodingSession(const GifEncodingSession&) = delete;
    GifEncodingSession& operator=(const GifEncodingSession&) = delete;

    void addFrame(const Frame& frame) override;
    bool isBehind() override { return waitingFrames() >= m_maxWaiting; }
    qsizetype frameCount() const override { return m_pending.size(); }
    std::expected<QByteArray, Failure> finish(double delaySeconds) override;

    // Where the encoding time went, summed over the frames finished so far, and how long
    // `finish` waited for the last ones.
    struct Timings
    {
        EncodeStageTimes stages;
        qint64 finishWaitNs = 0;
        qint64 assembleNs = 0;
    };
    const Timings& timings() const { return m_timings; }
    // Frames handed over and not yet encoded (repeats are encoded as they come).
    int waitingFrames();

private:
    struct Encoded
    {
        EncodedFrame frame;
        EncodeStageTimes times;
    };
    QuantizerSettings m_settings;
    int m_maxWaiting;
    std::optional<Frame> m_previous;
    QList<QFuture<Encoded>> m_pending;
    qsizetype m_encodedUpTo = 0; // every frame before this one is encoded
    QSize m_screen;
    Timings m_timings;
};

} // namespace vantalo
