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
    // Never waits for the encoding. A frame whose pixels are those of the frame before (the
    // same image, as a repeated slot hands over) is stored as unchanged without being compared.
    virtual void addFrame(const Frame& frame) = 0;
    // Whether frames wait to be encoded beyond what the session wants to hold: the recorder then
    // repeats frames instead of taking new pictures.
    virtual bool isBehind() { return false; }
    virtual qsizetype frameCount() const = 0;
    virtual std::expected<QByteArray, Failure> finish(double delaySeconds) = 0;
};

// Opens a session for each recording, fed frame by frame as they are captured.
class FrameEncoder
{
public:
    virtual ~FrameEncoder() = default;
    virtual std::unique_ptr<EncodingSession> openSession() const = 0;
};

} // namespace vantalo
