#include "GifEncoder.h"

#include "CodecThreadPool.h"
#include "RecorderErrors.h"

#include <QElapsedTimer>
#include <QFuture>
#include <QtConcurrent/QtConcurrentMap>

#include <numeric>

namespace vantalo {

namespace {
QSize screenSizeOf(const FrameList& frames)
{
    QSize size;
    for (const Frame& frame : frames) {
        size = size.expandedTo(frame.size());
    }
    return size;
}

bool usable(const Frame& frame)
{
    const QSize size = frame.size();
    return !frame.pixels.isNull() && size.width() <= 0xffff && size.height() <= 0xffff;
}
} // namespace

std::expected<QByteArray, Failure> GifEncoder::encode(const FrameList& frames, double delaySeconds) const
{
    if (frames.isEmpty() || !std::all_of(frames.cbegin(), frames.cend(), usable)) {
        return std::unexpected(failureOf(GifEncoderError::encodingFailed));
    }
    // Differencing looks only at the source frames, so every frame can be encoded on its own.
    QList<qsizetype> order(frames.size());
    std::iota(order.begin(), order.end(), 0);
    const QuantizerSettings settings = m_settings;
    QList<EncodedFrame> encoded =
        QtConcurrent::blockingMapped(&codecThreadPool(), order, [&frames, settings](qsizetype k) {
            return encodeFrame(frames[k], k > 0 ? &frames[k - 1] : nullptr, settings);
        });
    return assembleGif(screenSizeOf(frames), std::move(encoded), gifDelays(frames.size(), delaySeconds));
}

std::unique_ptr<EncodingSession> GifEncoder::openSession() const
{
    return std::make_unique<GifEncodingSession>(m_settings);
}

GifEncodingSession::~GifEncodingSession()
{
    // Discarded: let running frames finish on their own; nothing waits for them.
    for (QFuture<Encoded>& pending : m_pending) {
        pending.cancel();
    }
}

int GifEncodingSession::waitingFrames()
{
    while (m_encodedUpTo < m_pending.size() && m_pending[m_encodedUpTo].isFinished()) {
        ++m_encodedUpTo;
    }
    // Repeated frames are ready at once; only those still to be encoded hold pixels.
    return int(std::count_if(m_pending.cbegin() + m_encodedUpTo, m_pending.cend(),
                             [](const QFuture<Encoded>& pending) { return !pending.isFinished(); }));
}

void GifEncodingSession::addFrame(const Frame& frame)
{
    m_screen = m_screen.expandedTo(frame.size());
    if (m_settings.differencing && m_previous && frame.scale == m_previous->scale &&
        frame.pixels.cacheKey() == m_previous->pixels.cacheKey()) {
        m_pending.append(QtFuture::makeReadyFuture(Encoded{unchangedFrame(), {}}));
        return;
    }
    std::optional<Frame> previous = m_previous;
    m_pending.append(runOnCodecThreads([frame, previous, settings = m_settings] {
        Encoded out;
        out.frame = encodeFrame(frame, previous ? &*previous : nullptr, settings, &out.times);
        return out;
    }));
    m_previous = frame;
}

std::expected<QByteArray, Failure> GifEncodingSession::finish(double delaySeconds)
{
    if (m_pending.isEmpty()) {
        return std::unexpected(failureOf(GifEncoderError::encodingFailed));
    }
    QElapsedTimer clock;
    clock.start();
    QList<EncodedFrame> encoded;
    encoded.reserve(m_pending.size());
    for (QFuture<Encoded>& pending : m_pending) {
        Encoded done = pending.takeResult();
        m_timings.stages += done.times;
        encoded.append(std::move(done.frame));
    }
    m_timings.finishWaitNs = clock.nsecsElapsed();
    const qsizetype count = m_pending.size();
    m_pending.clear();
    m_encodedUpTo = 0;
    m_previous.reset();
    clock.restart();
    QByteArray gif = assembleGif(m_screen, std::move(encoded), gifDelays(count, delaySeconds));
    m_timings.assembleNs = clock.nsecsElapsed();
    return gif;
}

} // namespace vantalo
