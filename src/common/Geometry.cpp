#include "Geometry.h"

namespace vantalo {

namespace {
double flipY(double y, double height, const QRectF& primary)
{
    // The primary screen's bottom edge is y = 0 in the y-up space.
    return primary.top() + primary.height() - y - height;
}
} // namespace

QRectF toQtRect(const QRectF& yUpRect, const QRectF& primaryQtGeometry)
{
    return {primaryQtGeometry.left() + yUpRect.x(), flipY(yUpRect.y(), yUpRect.height(), primaryQtGeometry),
            yUpRect.width(), yUpRect.height()};
}

QRectF fromQtRect(const QRectF& qtRect, const QRectF& primaryQtGeometry)
{
    // The flip is its own inverse once the origin shift is undone.
    return {qtRect.x() - primaryQtGeometry.left(), flipY(qtRect.y(), qtRect.height(), primaryQtGeometry),
            qtRect.width(), qtRect.height()};
}

QPointF toQtPoint(const QPointF& yUpPoint, const QRectF& primaryQtGeometry)
{
    return {primaryQtGeometry.left() + yUpPoint.x(), flipY(yUpPoint.y(), 0, primaryQtGeometry)};
}

QPointF fromQtPoint(const QPointF& qtPoint, const QRectF& primaryQtGeometry)
{
    return {qtPoint.x() - primaryQtGeometry.left(), flipY(qtPoint.y(), 0, primaryQtGeometry)};
}

QRectF displayLocalRect(const QRectF& globalRegion, const QRectF& displayFrame)
{
    const double x = globalRegion.x() - displayFrame.x();
    const double y = displayFrame.height() - globalRegion.y() - globalRegion.height() + displayFrame.y();
    return {x, y, globalRegion.width(), globalRegion.height()};
}

} // namespace vantalo
