#include "RegionPreviewOverlay.h"

#include <QFontDatabase>
#include <QGuiApplication>
#include <QMouseEvent>
#include <QPainter>

namespace vantalo {

namespace {
Qt::CursorShape qtCursor(geometry::CursorShape shape)
{
    switch (shape) {
    case geometry::CursorShape::crosshair:
        return Qt::CrossCursor;
    case geometry::CursorShape::resizeUpDown:
        return Qt::SizeVerCursor;
    case geometry::CursorShape::resizeLeftRight:
        return Qt::SizeHorCursor;
    case geometry::CursorShape::openHand:
        return Qt::OpenHandCursor;
    case geometry::CursorShape::closedHand:
        return Qt::ClosedHandCursor;
    case geometry::CursorShape::arrow:
        return Qt::ArrowCursor;
    }
    return Qt::ArrowCursor;
}
} // namespace

RegionPreviewView::RegionPreviewView(QScreen* screen, bool compositing, const QRectF& region)
    : OverlayWindow(screen, compositing, 0.38), m_region(region)
{
}

void RegionPreviewView::mousePressEvent(QMouseEvent* event)
{
    const QPointF p = pointerInView(event->position());
    if (const auto handle = geometry::hitHandle(p, m_region)) {
        m_activeHandle = handle;
        m_isMoving = false;
        setCursor(qtCursor(geometry::handleCursor(*handle)));
    } else if (geometry::startsMove(p, m_region)) {
        m_isMoving = true;
        m_activeHandle.reset();
        setCursor(Qt::ClosedHandCursor);
    }
    m_dragStart = p;
    m_baseRegion = m_region;
}

void RegionPreviewView::mouseMoveEvent(QMouseEvent* event)
{
    const QPointF p = pointerInView(event->position());
    if (!m_isMoving && !m_activeHandle) {
        updateCursor(p);
        return;
    }
    const QPointF delta = p - m_dragStart;
    m_region = m_isMoving ? geometry::movedRegion(m_baseRegion, delta)
                          : geometry::resizedRegion(*m_activeHandle, m_baseRegion, delta);
    update();
    if (onRegionChanged) {
        onRegionChanged(m_region);
    }
}

void RegionPreviewView::mouseReleaseEvent(QMouseEvent* event)
{
    m_activeHandle.reset();
    m_isMoving = false;
    updateCursor(pointerInView(event->position()));
}

void RegionPreviewView::updateCursor(const QPointF& viewPoint)
{
    setCursor(qtCursor(geometry::cursorAt(viewPoint, m_region)));
}

void RegionPreviewView::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    paintDimmed(p, m_region);
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(QPen(QColor(255, 255, 255, qRound(0.9 * 255)), 1.5));
    p.setBrush(Qt::NoBrush);
    p.drawRect(toWidget(m_region));

    p.setPen(QPen(QColor(0, 0, 0, qRound(0.25 * 255)), 1));
    p.setBrush(Qt::white);
    for (geometry::Handle handle : geometry::allHandles) {
        const QPointF centre = toWidget(QRectF(geometry::handleCentre(handle, m_region), QSizeF())).topLeft();
        p.drawEllipse(centre, geometry::handleRadius, geometry::handleRadius);
    }

    paintSizePill(p, m_region, 11, 0.65, [&](const QSizeF& text) {
        return geometry::previewLabelBox(m_region, text, QSizeF(size()));
    });
}

void RegionPreviewOverlay::show(const DisplayInfo& display, const QRectF& region)
{
    hide();
    QScreen* screen = QGuiApplication::primaryScreen();
    for (QScreen* candidate : QGuiApplication::screens()) {
        if (candidate->name() == display.name) {
            screen = candidate;
        }
    }
    auto* view = new RegionPreviewView(screen, m_compositing && m_compositing(),
                                       geometry::globalToView(region, display.frame));
    view->onRegionChanged = [this, view](const QRectF& viewRegion) {
        if (onRegionChanged) {
            onRegionChanged(geometry::viewToGlobal(viewRegion, view->display().frame));
        }
    };
    view->onEscape = [this] {
        if (onCancelled) {
            onCancelled();
        }
    };
    view->onReturn = [this] {
        if (onConfirmed) {
            onConfirmed();
        }
    };
    view->show();
    view->raise();
    view->grabKeyboard();
    m_window = view;
}

void RegionPreviewOverlay::hide()
{
    if (m_window) {
        m_window->releaseKeyboard();
        m_window->close();
    }
    m_window = nullptr;
}

} // namespace vantalo
