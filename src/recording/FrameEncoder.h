#pragma once

#include "Frame.h"
#include "common/Failure.h"

#include <QByteArray>

#include <expected>

namespace vantalo {

// Turns frames into the bytes of one GIF. Keeps no state and is called from worker threads.
class FrameEncoder
{
public:
    virtual ~FrameEncoder() = default;
    virtual std::expected<QByteArray, Failure> encode(const FrameList& frames, double delaySeconds) const = 0;
};

} // namespace vantalo
