#include "Symbols.h"

#include <QPainter>
#include <QPainterPath>

namespace vantalo {

namespace {

// A cloud in a 24 × 24 unit box, resting on y = 18.
QPainterPath cloudPath()
{
    QPainterPath cloud;
    cloud.moveTo(7, 18);
    cloud.arcTo(QRectF(2, 9.5, 8.5, 8.5), 270, -180);
    cloud.arcTo(QRectF(6.5, 4, 11, 11), 160, -150);
    cloud.arcTo(QRectF(14.5, 9.5, 8, 8.5), 90, -180);
    cloud.closeSubpath();
    return cloud;
}

} // namespace

void paintSymbol(QPainter& painter, Symbol symbol, const QRectF& box, const QColor& color, double weight)
{
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    const double side = std::min(box.width(), box.height());
    painter.translate(box.center().x() - side / 2, box.center().y() - side / 2);
    painter.scale(side / 24.0, side / 24.0);
    QPen pen(color, weight * 24.0 / side, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin);
    painter.setPen(pen);
    painter.setBrush(Qt::NoBrush);

    switch (symbol) {
    case Symbol::cloudUpload:
        painter.drawPath(cloudPath());
        painter.drawLine(QPointF(12.5, 16), QPointF(12.5, 10));
        painter.drawPolyline(QPolygonF({{10, 12.5}, {12.5, 10}, {15, 12.5}}));
        break;
    case Symbol::cloudCheckmark:
        painter.drawPath(cloudPath());
        painter.drawPolyline(QPolygonF({{9.5, 13}, {11.8, 15.2}, {15.8, 10.8}}));
        break;
    case Symbol::clipboard:
        painter.drawRoundedRect(QRectF(5, 4.5, 14, 17), 2, 2);
        painter.setBrush(color);
        painter.drawRoundedRect(QRectF(9, 2.5, 6, 3.5), 1, 1);
        painter.setBrush(Qt::NoBrush);
        painter.drawLine(QPointF(8.5, 11), QPointF(15.5, 11));
        painter.drawLine(QPointF(8.5, 14.5), QPointF(15.5, 14.5));
        painter.drawLine(QPointF(8.5, 18), QPointF(13, 18));
        break;
    case Symbol::trash:
        painter.drawLine(QPointF(4, 6.5), QPointF(20, 6.5));
        painter.drawPolyline(QPolygonF({{9, 6.5}, {9.5, 3.5}, {14.5, 3.5}, {15, 6.5}}));
        painter.drawPolyline(QPolygonF({{6, 6.5}, {7, 21}, {17, 21}, {18, 6.5}}));
        painter.drawLine(QPointF(10, 10), QPointF(10.3, 17.5));
        painter.drawLine(QPointF(14, 10), QPointF(13.7, 17.5));
        break;
    case Symbol::arrowUturnLeft: {
        QPainterPath turn;
        turn.moveTo(5, 10);
        turn.lineTo(15, 10);
        turn.arcTo(QRectF(10, 10, 10, 10), 90, -180);
        turn.lineTo(9, 20);
        painter.drawPath(turn);
        painter.drawLine(QPointF(5, 10), QPointF(9, 6));
        painter.drawLine(QPointF(5, 10), QPointF(9, 14));
        break;
    }
    case Symbol::xmark:
        painter.drawLine(QPointF(5, 5), QPointF(19, 19));
        painter.drawLine(QPointF(19, 5), QPointF(5, 19));
        break;
    case Symbol::xmarkCircleFill: {
        QPainterPath disc;
        disc.addEllipse(QRectF(1, 1, 22, 22));
        QPainterPathStroker stroker;
        stroker.setWidth(2.6);
        stroker.setCapStyle(Qt::RoundCap);
        QPainterPath cross;
        cross.moveTo(8, 8);
        cross.lineTo(16, 16);
        cross.moveTo(16, 8);
        cross.lineTo(8, 16);
        painter.setPen(Qt::NoPen);
        painter.fillPath(disc.subtracted(stroker.createStroke(cross)), color);
        break;
    }
    case Symbol::photoStack:
        painter.save();
        painter.translate(12, 12);
        painter.rotate(-10);
        painter.drawRoundedRect(QRectF(-9, -8, 16, 12), 1.5, 1.5);
        painter.restore();
        painter.drawRoundedRect(QRectF(5, 7.5, 16, 12), 1.5, 1.5);
        painter.drawPolyline(QPolygonF({{6, 18}, {11, 13}, {14, 16}, {16, 14}, {20, 18}}));
        painter.drawEllipse(QPointF(17, 11), 1.2, 1.2);
        break;
    case Symbol::arrowsInward:
        painter.drawLine(QPointF(3.5, 3.5), QPointF(10, 10));
        painter.drawPolyline(QPolygonF({{10, 5}, {10, 10}, {5, 10}}));
        painter.drawLine(QPointF(20.5, 20.5), QPointF(14, 14));
        painter.drawPolyline(QPolygonF({{14, 19}, {14, 14}, {19, 14}}));
        painter.drawRoundedRect(QRectF(3.5, 14, 6.5, 6.5), 1.2, 1.2);
        painter.drawRoundedRect(QRectF(14, 3.5, 6.5, 6.5), 1.2, 1.2);
        break;
    }
    painter.restore();
}

} // namespace vantalo
