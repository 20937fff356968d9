#include "Frame.h"

namespace vantalo {

QImage Frame::fullSize() const
{
    if (scale == 1 || pixels.isNull()) {
        return pixels;
    }
    return pixels.scaled(pixels.size() * scale, Qt::IgnoreAspectRatio, Qt::FastTransformation);
}

} // namespace vantalo
