#pragma once

#include "FrameEncoder.h"
#include "FrameQuantizer.h"

#include <QFuture>

namespace vantalo {

// Writes frames as one GIF that loops for ever, every frame shown for the given delay. Frames are
// encoded in parallel on every core; the file is assembled in order.
class GifEncoder final : public FrameEncoder
{
public:
    explicit GifEncoder(QuantizerSettings settings = {}) : m_settings(settings) {}

    std::expected<QByteArray, Failure> encode(const FrameList& frames, double delaySeconds) const override;
    std::unique_ptr<EncodingSession> openSession() const override;
    const QuantizerSettings& settings() const { return m_settings; }

private:
    QuantizerSettings m_settings;
};

// The same GIF, built while the frames are still being captured: each frame is handed to the
// thread pool as it arrives (compared with the one before it), and kept only in its compressed
// form. `finish` waits for the frames still being encoded and writes the file.
class GifEncodingSession final : public EncodingSession
{
public:
    explicit GifEncodingSession(QuantizerSettings settings = {}) : m_settings(settings) {}
    ~GifEncodingSession() override;

    GifEncodingSession(const GifEncodingSession&) = delete;
    GifEncodingSession& operator=(const GifEncodingSession&) = delete;

    void addFrame(const Frame& frame) override;
    qsizetype frameCount() const override { return m_pending.size(); }
    std::expected<QByteArray, Failure> finish(double delaySeconds) override;

private:
    QuantizerSettings m_settings;
    std::optional<Frame> m_previous;
    QList<QFuture<EncodedFrame>> m_pending;
    QSize m_screen;
};

} // namespace vantalo
