#pragma once

#include <QImage>
#include <QList>
#include <QMutex>
#include <QPoint>
#include <QRect>
#include <QSize>

#include <optional>

namespace vantalo {

// A monitor stream as a screen-cast service describes it: where the monitor is and how large, in
// logical coordinates. Some compositors (KWin) give no position: such a monitor is taken to be at
// the origin.
struct StreamPlacement
{
    std::optional<QPoint> position;
    std::optional<QSize> size;

    QRect geometry() const { return QRect(position.value_or(QPoint(0, 0)), size.value_or(QSize())); }
};

// Which of the session's screens (logical geometries) a shared monitor is: the one at its
// position with its size, or where the desktop gives no position, the first of its size.
std::optional<qsizetype> screenOfStream(const StreamPlacement& stream, const QList<QRect>& screens);

// Where `region` (logical, relative to the display's top-left) lies in a stream buffer of
// `bufferSize` showing a display of `logicalSize`. Each axis has its own factor (fractional
// scaling rounds them differently); the edges are rounded outward so no chosen pixel is lost.
// Nothing when the region does not lie within the display.
std::optional<QRect> bufferRect(const QRectF& region, QSize logicalSize, QSize bufferSize);

// The newest frame a source has delivered. The source (a stream thread) puts frames at whatever
// pace it has; the capture clock takes one each tick, and a tick with nothing new takes the last
// frame again (the same pixels, not a copy).
class LatestFrame
{
public:
    void put(QImage frame);
    std::optional<QImage> take() const;

private:
    mutable QMutex m_mutex;
    QImage m_frame;
};

} // namespace vantalo
