#pragma once

#include "common/Failure.h"
#include "recording/StreamMapping.h"

#include <QImage>
#include <QRectF>
#include <QSize>

#include <expected>
#include <memory>
#include <optional>

namespace vantalo {

// One screen-cast stream read with libpipewire on a thread of its own: shared-memory buffers in
// BGRx, BGRA, RGBx or RGBA, each frame cut to the region on that thread and kept as the newest
// frame; nothing there ever waits for the encoder. The region is in the monitor's logical
// coordinates, mapped onto the buffer axis by axis whatever its size (scaling).
class PipeWireStream
{
public:
    // Takes `fd` (a PipeWire connection from the portal) and reads node `nodeId`.
    static std::expected<std::unique_ptr<PipeWireStream>, Failure>
    open(int fd, quint32 nodeId, const QRectF& region, QSize logicalSize);
    ~PipeWireStream();

    PipeWireStream(const PipeWireStream&) = delete;
    PipeWireStream& operator=(const PipeWireStream&) = delete;

    // The newest frame (the region, RGB32), or nothing before the first.
    std::optional<QImage> latest() const;
    // Why the stream ended (an error, the share stopped, a size the region no longer fits in).
    std::optional<Failure> failure() const;
    // How many frames the desktop has sent so far.
    long long delivered() const;

    struct Private;

private:
    PipeWireStream();
    std::unique_ptr<Private> d;
};

} // namespace vantalo
