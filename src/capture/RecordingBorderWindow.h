#pragma once

#include "common/FloatingWindow.h"
#include "common/RegionGeometry.h"

#include <QPainter>
#include <QVariantAnimation>
#include <QWidget>

namespace vantalo {

// The red ring round a region being recorded: a window only where the ring is, that clicks pass
// through; with a compositor its glow breathes.
class RecordingBorderWindow : public QWidget
{
public:
    explicit RecordingBorderWindow(bool compositing) : m_compositing(compositing)
    {
        makeFloating(this, FloatingInput::clickThrough, FloatingPlacement::exact);
        setAttribute(Qt::WA_TransparentForMouseEvents);
        setAttribute(Qt::WA_DeleteOnClose);
        if (compositing) {
            setAttribute(Qt::WA_TranslucentBackground);
            // The glow breathes from 0.2 to 0.75 and back every 2.8 s.
            auto* glow = new QVariantAnimation(this);
            glow->setStartValue(0.2);
            glow->setKeyValueAt(0.5, 0.75);
            glow->setEndValue(0.2);
            glow->setDuration(2800);
            glow->setEasingCurve(QEasingCurve::InOutSine);
            glow->setLoopCount(-1);
            connect(glow, &QVariantAnimation::valueChanged, this, [this](const QVariant& value) {
                m_glow = value.toDouble();
                update();
            });
            glow->start();
        }
    }
    double glow() const { return m_glow; }

protected:
    void resizeEvent(QResizeEvent*) override
    {
        // Only the ring outside the region is window; the region itself stays untouched.
        setMask(QRegion(rect()).subtracted(QRegion(rect().adjusted(4, 4, -4, -4))));
    }
    void paintEvent(QPaintEvent*) override
    {
        QPainter p(this);
        p.setRenderHint(QPainter::Antialiasing);
        const QRectF path = geometry::borderPathRect(QSizeF(size()));
        if (m_compositing) {
            p.setCompositionMode(QPainter::CompositionMode_Source);
            p.fillRect(rect(), Qt::transparent);
            p.setCompositionMode(QPainter::CompositionMode_SourceOver);
            p.setPen(QPen(QColor(255, 59, 48, qRound(m_glow * 0.6 * 255)), 4));
            p.drawRoundedRect(path, 6, 6);
        }
        p.setPen(QPen(QColor::fromRgbF(1.0f, 0.22f, 0.22f, m_compositing ? 0.9f : 1.0f), 1.5));
        p.setBrush(Qt::NoBrush);
        p.drawRoundedRect(path, 6, 6);
    }

private:
    bool m_compositing;
    double m_glow = 0.55;
};

} // namespace vantalo
