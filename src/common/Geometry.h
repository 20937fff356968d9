#pragma once

#include <QPointF>
#include <QRectF>
#include <QString>

namespace vantalo {

// Capture geometry is worked out in one global space: points, origin at the bottom-left corner of
// the primary screen, y growing upward. Qt's global space has its origin at the top-left of the
// virtual desktop with y growing downward. Widgets convert at their boundary with these helpers,
// nowhere else. `primaryQtGeometry` is the primary screen's geometry in Qt's space.
QRectF toQtRect(const QRectF& yUpRect, const QRectF& primaryQtGeometry);
QRectF fromQtRect(const QRectF& qtRect, const QRectF& primaryQtGeometry);
QPointF toQtPoint(const QPointF& yUpPoint, const QRectF& primaryQtGeometry);
QPointF fromQtPoint(const QPointF& qtPoint, const QRectF& primaryQtGeometry);

// A display as the capture flow sees it: its name and its frame in the y-up global space.
struct DisplayInfo
{
    QString name;
    QRectF frame;

    friend bool operator==(const DisplayInfo&, const DisplayInfo&) = default;
};

// The region relative to the display, with the origin at the display's top-left corner and y
// growing downward, which is what the screen recorder takes. Sizes are kept in points.
QRectF displayLocalRect(const QRectF& globalRegion, const QRectF& displayFrame);

} // namespace vantalo
