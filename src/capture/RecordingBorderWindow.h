#pragma once

#include "RecordingLook.h"
#include "common/FloatingWindow.h"
#include "common/RegionGeometry.h"

#include <QMouseEvent>
#include <QPainter>
#include <QVariantAnimation>
#include <QWidget>

#include <functional>

namespace vantalo {

// The ring round a region being recorded: a window only where the ring is. Recording, it is red,
// clicks pass through it and with a compositor its glow breathes; paused, it is amber and still,
// wider, and dragging it moves it (`onDragged` gets the pointer's travel since the press).
class RecordingBorderWindow : public QWidget
{
public:
    // How far the ring reaches out from the region.
    static constexpr int recordingWidth = 4;
    static constexpr int pausedWidth = 8;

    RecordingBorderWindow(bool compositing, bool paused) : m_compositing(compositing), m_paused(paused)
    {
        makeFloating(this, paused ? FloatingInput::takesClicks : FloatingInput::clickThrough,
                     FloatingPlacement::exact);
        setWindowTitle(QStringLiteral("Vantalo Recording Border"));
        setAttribute(Qt::WA_DeleteOnClose);
        if (paused) {
            setCursor(Qt::SizeAllCursor);
            setToolTip(QStringLiteral("Drag to move the region"));
        } else {
            setAttribute(Qt::WA_TransparentForMouseEvents);
        }
        if (compositing) {
            setAttribute(Qt::WA_TranslucentBackground);
        }
        if (compositing && !paused) {
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
    int ringWidth() const { return m_paused ? pausedWidth : recordingWidth; }
    double glow() const { return m_glow; }

    std::function<void()> onDragStarted;
    std::function<void(const QPoint& travel)> onDragged;

protected:
    void resizeEvent(QResizeEvent*) override
    {
        // Only the ring outside the region is window; the region itself stays untouched.
        const int w = ringWidth();
        setMask(QRegion(rect()).subtracted(QRegion(rect().adjusted(w, w, -w, -w))));
    }
    void mousePressEvent(QMouseEvent* event) override
    {
        if (m_paused && event->button() == Qt::LeftButton) {
            m_pressedAt = event->globalPosition().toPoint();
            if (onDragStarted) {
                onDragStarted();
            }
        }
    }
    void mouseMoveEvent(QMouseEvent* event) override
    {
        if (m_pressedAt && onDragged) {
            onDragged(event->globalPosition().toPoint() - *m_pressedAt);
        }
    }
    void mouseReleaseEvent(QMouseEvent*) override { m_pressedAt.reset(); }
    void paintEvent(QPaintEvent*) override
    {
        QPainter p(this);
        p.setRenderHint(QPainter::Antialiasing);
        if (m_compositing) {
            p.setCompositionMode(QPainter::CompositionMode_Source);
            p.fillRect(rect(), Qt::transparent);
            p.setCompositionMode(QPainter::CompositionMode_SourceOver);
        }
        if (m_paused) {
            // A band to take hold of, the amber line along its middle.
            p.fillRect(rect(), QColor(28, 28, 30, m_compositing ? 110 : 255));
            const double inset = pausedWidth / 2.0;
            p.setPen(QPen(pausedAmber(), 3));
            p.drawRoundedRect(QRectF(rect()).adjusted(inset, inset, -inset, -inset), 6, 6);
            return;
        }
        const QRectF path = geometry::borderPathRect(QSizeF(size()));
        if (m_compositing) {
            p.setPen(QPen(QColor(255, 59, 48, qRound(m_glow * 0.6 * 255)), 4));
            p.drawRoundedRect(path, 6, 6);
        }
        QColor red = recordingRed();
        red.setAlphaF(m_compositing ? 0.9f : 1.0f);
        p.setPen(QPen(red, 1.5));
        p.setBrush(Qt::NoBrush);
        p.drawRoundedRect(path, 6, 6);
    }

private:
    bool m_compositing;
    bool m_paused;
    double m_glow = 0.55;
    std::optional<QPoint> m_pressedAt;
};

} // namespace vantalo
