#pragma once

#include "common/Geometry.h"

#include <QImage>
#include <QPointer>
#include <QScreen>
#include <QWidget>

#include <functional>

namespace vantalo {

// The display a screen is, in the y-up global space.
DisplayInfo displayInfoFor(const QScreen* screen);

// A borderless, topmost window covering one display, dimmed except for a hole. Where a compositor
// runs the hole shows the live screen; where none does (translucent windows would be black) the
// window paints `still`, the display as it was before the overlays, dimmed, with the hole undimmed.
// Geometry is y-up inside the view (origin at the display's bottom-left), as the overlays work.
class OverlayWindow : public QWidget
{
    Q_OBJECT
public:
    // `still` null: a compositor shows the screen through the window.
    OverlayWindow(QScreen* screen, const QImage& still, double dimAlpha);

    QScreen* screen() const { return m_screen; }
    const DisplayInfo& display() const { return m_display; }
    bool showsStill() const { return !m_still.isNull(); }

    QRectF toWidget(const QRectF& viewRect) const;
    QPointF toView(const QPointF& widgetPoint) const;
    // Where the pointer is in view coordinates: on the last column or row, at the display's edge.
    QPointF pointerInView(const QPointF& widgetPoint) const;

    std::function<void()> onEscape;
    std::function<void()> onReturn; // Return or Enter

protected:
    // Dims everything, then opens the hole (nothing when the rectangle is empty).
    void paintDimmed(QPainter& painter, const QRectF& holeInView) const;
    // The region's size ("640 × 480"), or `text`, in white on a dark capsule; `placeBox` turns the
    // text's size into the capsule's rectangle in view coordinates. Returns the capsule (widget
    // coordinates).
    QRectF paintSizePill(QPainter& painter, const QRectF& region, int pixelSize, double backgroundAlpha,
                         const std::function<QRectF(const QSizeF& textSize)>& placeBox,
                         const QString& text = {}) const;
    // A line of text on a dark capsule, centred 24 points below the display's top edge.
    void paintMessage(QPainter& painter, const QString& text) const;
    void keyPressEvent(QKeyEvent* event) override;

private:
    QPointer<QScreen> m_screen;
    DisplayInfo m_display;
    QImage m_still;
    double m_dimAlpha;
};

} // namespace vantalo
