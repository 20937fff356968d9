#include "RegionSelectionWindowController.h"

#include "common/RegionGeometry.h"

#include <QFontDatabase>
#include <QGuiApplication>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>

namespace vantalo {

RegionSelectionView::RegionSelectionView(QScreen* screen, bool compositing)
    : OverlayWindow(screen, compositing, 0.3)
{
    setCursor(Qt::CrossCursor);
}

void RegionSelectionView::mousePressEvent(QMouseEvent* event)
{
    m_dragStart = pointerInView(event->position());
    m_currentRect.reset();
    update();
}

void RegionSelectionView::mouseMoveEvent(QMouseEvent* event)
{
    if (!m_dragStart || !(event->buttons() & Qt::LeftButton)) {
        return;
    }
    m_currentRect = geometry::dragRect(*m_dragStart, pointerInView(event->position()));
    update();
}

void RegionSelectionView::mouseReleaseEvent(QMouseEvent*)
{
    if (m_currentRect && geometry::isSelectable(*m_currentRect)) {
        if (onRegionSelected) {
            onRegionSelected(*m_currentRect);
        }
        return;
    }
    // Too small: forget it and wait for another drag.
    m_dragStart.reset();
    m_currentRect.reset();
    update();
}

void RegionSelectionView::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    paintDimmed(p, m_currentRect.value_or(QRectF()));
    if (!m_currentRect) {
        return;
    }
    const QRectF hole = toWidget(*m_currentRect);
    QPen outline(Qt::white, 2);
    outline.setDashPattern({3, 2}); // 6 on, 4 off, in units of the 2-point line width
    p.setPen(outline);
    p.setBrush(Qt::NoBrush);
    p.drawRect(hole);

    const QRectF rect = *m_currentRect;
    paintSizePill(p, rect, 12, 0.75,
                  [&](const QSizeF& text) { return geometry::selectionLabelBox(rect, text); });
}

RegionSelectionWindowController::RegionSelectionWindowController(std::function<bool()> compositing)
    : m_compositing(std::move(compositing))
{
}

RegionSelectionWindowController::~RegionSelectionWindowController()
{
    dismiss();
}

void RegionSelectionWindowController::show()
{
    dismiss();
    const bool compositing = m_compositing && m_compositing();
    for (QScreen* screen : QGuiApplication::screens()) {
        auto* view = new RegionSelectionView(screen, compositing);
        const QPointer<QScreen> display(screen);
        view->onRegionSelected = [this, display, view](const QRectF& viewRect) {
            if (display && onRegionSelected) {
                onRegionSelected(geometry::viewToGlobal(viewRect, view->display().frame), view->display());
            }
        };
        view->onEscape = [this] {
            if (onCancelled) {
                onCancelled();
            }
        };
        view->show();
        view->raise();
        view->activateWindow();
        m_windows.append(view);
    }
    // The keyboard goes to the overlay for Escape while the user drags.
    if (!m_windows.isEmpty()) {
        m_windows.first()->grabKeyboard();
    }
}

void RegionSelectionWindowController::dismiss()
{
    for (const QPointer<RegionSelectionView>& window : std::as_const(m_windows)) {
        if (window) {
            window->releaseKeyboard();
            window->close();
        }
    }
    m_windows.clear();
}

QList<RegionSelectionView*> RegionSelectionWindowController::windows() const
{
    QList<RegionSelectionView*> live;
    for (const auto& window : m_windows) {
        if (window) {
            live.append(window);
        }
    }
    return live;
}

} // namespace vantalo
