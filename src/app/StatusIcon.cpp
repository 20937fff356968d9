#include "StatusIcon.h"

#include "capture/RecordingLook.h"

#include <QPainter>
#include <QPainterPath>

namespace vantalo {

namespace {
const QColor kRecordRed(255, 59, 48);
const QColor kOutline(240, 240, 240);
const QColor kDisc(38, 38, 40);
} // namespace

QImage renderStatusIcon(StatusIconLook look, int sizePx)
{
    QImage image(sizePx, sizePx, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter p(&image);
    p.setRenderHint(QPainter::Antialiasing);

    const qreal s = sizePx;
    const QPointF centre(s / 2, s / 2);
    const qreal outer = s * 0.42;
    const qreal inner = s * 0.2;

    if (look == StatusIconLook::paused) {
        // The amber disc of a paused recording with the pause bars on it.
        p.setPen(Qt::NoPen);
        p.setBrush(pausedAmber());
        p.drawEllipse(centre, outer, outer);
        p.setBrush(Qt::white);
        const qreal bar = std::max(1.5, s * 0.11);
        const qreal height = s * 0.36;
        for (const qreal x : {centre.x() - bar * 1.4, centre.x() + bar * 0.4}) {
            p.drawRect(QRectF(x, centre.y() - height / 2, bar, height));
        }
    } else if (look == StatusIconLook::recording) {
        // A filled red disc with the record dot cut out, as in the filled record symbol.
        QPainterPath disc;
        disc.addEllipse(centre, outer, outer);
        QPainterPath dot;
        dot.addEllipse(centre, inner, inner);
        p.fillPath(disc.subtracted(dot), kRecordRed);
        p.setBrush(Qt::white);
        p.setPen(Qt::NoPen);
        p.drawEllipse(centre, inner * 0.85, inner * 0.85);
    } else {
        // A light ring and dot on a dark disc: the disc stands out on a light panel, the ring and
        // the dot on a dark one.
        p.setPen(Qt::NoPen);
        p.setBrush(kDisc);
        p.drawEllipse(centre, s * 0.47, s * 0.47);
        const qreal ringWidth = std::max(1.5, s * 0.09);
        const qreal ringRadius = s * 0.3;
        p.setBrush(Qt::NoBrush);
        p.setPen(QPen(kOutline, ringWidth));
        p.drawEllipse(centre, ringRadius, ringRadius);
        p.setPen(Qt::NoPen);
        p.setBrush(kOutline);
        p.drawEllipse(centre, inner * 0.75, inner * 0.75);
    }
    return image;
}

QIcon statusIcon(StatusIconLook look)
{
    QIcon icon;
    for (int size : {16, 22, 24, 32, 48, 64}) {
        icon.addPixmap(QPixmap::fromImage(renderStatusIcon(look, size)));
    }
    return icon;
}

QImage renderApplicationIcon(int sizePx)
{
    QImage image(sizePx, sizePx, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter p(&image);
    p.setRenderHint(QPainter::Antialiasing);
    const qreal s = sizePx;
    p.setPen(Qt::NoPen);
    p.setBrush(QColor(28, 28, 30));
    p.drawRoundedRect(QRectF(s * 0.04, s * 0.04, s * 0.92, s * 0.92), s * 0.22, s * 0.22);
    p.setBrush(kRecordRed);
    p.drawEllipse(QPointF(s / 2, s / 2), s * 0.27, s * 0.27);
    p.setBrush(Qt::white);
    p.drawEllipse(QPointF(s / 2, s / 2), s * 0.11, s * 0.11);
    return image;
}

QIcon applicationIcon()
{
    QIcon icon;
    for (int size : {32, 64, 128, 256}) {
        icon.addPixmap(QPixmap::fromImage(renderApplicationIcon(size)));
    }
    return icon;
}

} // namespace vantalo
