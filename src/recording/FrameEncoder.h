#pragma once

#include "Frame.h"
#include "common/Failure.h"

#include <QByteArray>

#include <expected>
#include <memory>

namespace vantalo {

// A GIF being encoded while its frames are still being captured. Frames are added from one
// thread at a time; `finish` comes after the last one.
class EncodingSession
{
public:
    virtual ~EncodingSession() = default;
    virtual void addFrame(const Frame& frame) = 0;
    virtual qsizetype frameCount() const = 0;
    virtual std::expected<QByteArray, Failure> finish(double delaySeconds) = 0;
};

// Turns frames into the bytes of one GIF. Keeps no state and is called from worker threads.
class FrameEncoder
{
public:
    virtual ~FrameEncoder() = default;
    virtual std::expected<QByteArray, Failure> encode(const FrameList& frames, double delaySeconds) const = 0;
    // A session fed frame by frame, or nothing where the encoder only works on whole lists.
    virtual std::unique_ptr<EncodingSession> openSession() const { return nullptr; }
};

} // namespace vantalo
