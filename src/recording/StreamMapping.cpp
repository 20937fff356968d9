#include "StreamMapping.h"

#include <QMutexLocker>

#include <cmath>

namespace vantalo {

std::optional<QRect> bufferRect(const QRectF& region, QSize logicalSize, QSize bufferSize)
{
    if (logicalSize.isEmpty() || bufferSize.isEmpty() || region.isEmpty() ||
        !QRectF(QPointF(0, 0), QSizeF(logicalSize)).contains(region)) {
        return std::nullopt;
    }
    const double sx = double(bufferSize.width()) / logicalSize.width();
    const double sy = double(bufferSize.height()) / logicalSize.height();
    // Outward, but a product that is a whole number up to rounding noise stays that number.
    const auto down = [](double v) { return int(std::floor(v + 1e-9)); };
    const auto up = [](double v) { return int(std::ceil(v - 1e-9)); };
    const QRect rect(QPoint(down(region.left() * sx), down(region.top() * sy)),
                     QPoint(up(region.right() * sx) - 1, up(region.bottom() * sy) - 1));
    return rect.intersected(QRect(QPoint(0, 0), bufferSize));
}

std::optional<qsizetype> screenOfStream(const StreamPlacement& stream, const QList<QRect>& screens)
{
    for (qsizetype i = 0; i < screens.size(); ++i) {
        const bool sameSize = stream.size && screens[i].size() == *stream.size;
        if (sameSize && (!stream.position || screens[i].topLeft() == *stream.position)) {
            return i;
        }
    }
    return std::nullopt;
}

void LatestFrame::put(QImage frame)
{
    const QMutexLocker lock(&m_mutex);
    m_frame = std::move(frame);
}

std::optional<QImage> LatestFrame::take() const
{
    const QMutexLocker lock(&m_mutex);
    if (m_frame.isNull()) {
        return std::nullopt;
    }
    return m_frame;
}

} // namespace vantalo
