#pragma once

#include <QImage>
#include <QList>

namespace vantalo {

// One captured frame. The pixels are kept at the size they were captured at; `scale` says how
// many output pixels each captured pixel becomes along each axis (2 where the screen's pixels are
// half a point, 1 where they already are). Identical consecutive frames share their pixels.
struct Frame
{
    QImage pixels;
    int scale = 1;

    QSize size() const { return pixels.size() * scale; }
    // The frame at its output size; the doubling is exact (each pixel becomes scale × scale).
    QImage fullSize() const;
};

using FrameList = QList<Frame>;

} // namespace vantalo
