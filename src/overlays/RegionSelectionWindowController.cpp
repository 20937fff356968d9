#include "RegionSelectionWindowController.h"

#include "common/Geometry.h"
#include "common/RegionGeometry.h"

#include <QFontDatabase>
#include <QGuiApplication>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QTimer>

#include <utility>

namespace vantalo {

namespace {
const QColor kWindowHighlight(48, 120, 255);
} // namespace

RegionSelectionView::RegionSelectionView(QScreen* screen, const QImage& still,
                                         const std::optional<QList<QRect>>& windows,
                                         const std::optional<QRectF>& lastRegion)
    : OverlayWindow(screen, still, 0.3), m_lastRegion(lastRegion)
{
    setCursor(Qt::CrossCursor);
    if (windows) {
        m_windows.emplace();
        const QRectF view(rect());
        for (const QRect& frame : *windows) {
            const QRectF local = QRectF(frame).translated(-QPointF(screen->geometry().topLeft()));
            if (local.intersects(view)) {
                m_windows->append(fromQtRect(local, view));
            }
        }
    }
    QStringList hint{QStringLiteral("Drag to select an area")};
    hint << (m_windows ? QStringLiteral("Click a window \u00B7 Click the desktop for the whole screen")
                       : QStringLiteral("Click for the whole screen"));
    if (m_lastRegion) {
        hint << QStringLiteral("Return for the last region");
    }
    hint << QStringLiteral("Esc to cancel");
    m_message = hint.join(QStringLiteral(" \u00B7 "));
    QTimer::singleShot(hintMs, this, [this] {
        if (m_message != tooSmallText) {
            m_message.clear();
            update();
        }
    });
}

std::optional<QRectF> RegionSelectionView::windowAt(const QPointF& p) const
{
    if (m_windows) {
        for (const QRectF& frame : *m_windows) {
            if (frame.contains(p)) {
                return frame & QRectF(QPointF(), QSizeF(size()));
            }
        }
    }
    return std::nullopt;
}

QRectF RegionSelectionView::clickedRect(const QPointF& p) const
{
    if (m_lastRegion && m_lastRegion->contains(p)) {
        return *m_lastRegion;
    }
    return windowAt(p).value_or(QRectF(QPointF(), QSizeF(size())));
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
        // Not dragging: the window a click would take is outlined.
        const QPointF p = toView(event->position());
        const std::optional<QRectF> hovered =
            m_lastRegion && m_lastRegion->contains(p) ? m_lastRegion : windowAt(p);
        if (hovered != m_hoveredWindow) {
            m_hoveredWindow = hovered;
            update();
        }
        return;
    }
    m_currentRect = geometry::dragRect(*m_dragStart, pointerInView(event->position()));
    update();
}

void RegionSelectionView::mouseReleaseEvent(QMouseEvent* event)
{
    const std::optional<QPointF> start = std::exchange(m_dragStart, std::nullopt);
    if (const std::optional<QRectF> dragged = std::exchange(m_currentRect, std::nullopt);
        dragged && geometry::isSelectable(*dragged)) {
        if (onRegionSelected) {
            onRegionSelected(*dragged);
        }
        return;
    }
    if (start && geometry::isClick(*start, pointerInView(event->position()))) {
        if (const QRectF clicked = clickedRect(*start); geometry::isSelectable(clicked) && onRegionSelected) {
            onRegionSelected(clicked);
            return;
        }
    }
    // A short drag: forget it, say why, and wait for another.
    m_message = tooSmallText;
    update();
}

void RegionSelectionView::paintOutline(QPainter& p, const QRectF& widgetRect)
{
    // Dark under white dashes: seen over light and dark content alike.
    p.setBrush(Qt::NoBrush);
    p.setPen(QPen(Qt::black, 2));
    p.drawRect(widgetRect);
    QPen outline(Qt::white, 2);
    outline.setDashPattern({3, 2}); // 6 on, 4 off, in units of the 2-point line width
    p.setPen(outline);
    p.drawRect(widgetRect);
}

void RegionSelectionView::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    paintDimmed(p, m_currentRect.value_or(QRectF()));
    if (!m_message.isEmpty()) {
        paintMessage(p, m_message);
    }
    if (!m_currentRect) {
        if (m_lastRegion) {
            paintOutline(p, toWidget(*m_lastRegion));
            const QRectF last = *m_lastRegion;
            paintSizePill(
                p, last, 12, 0.75,
                [&](const QSizeF& text) { return geometry::selectionLabelBox(last, text); },
                QStringLiteral("Last region \u00B7 %1 \u00B7 Return").arg(geometry::sizeLabel(last)));
        }
        if (m_hoveredWindow) {
            // Tinted and edged in blue, which shows over light windows and dark ones.
            p.setPen(QPen(kWindowHighlight, 4));
            p.setBrush(QColor(kWindowHighlight.red(), kWindowHighlight.green(), kWindowHighlight.blue(), 50));
            p.drawRect(toWidget(*m_hoveredWindow).adjusted(2, 2, -2, -2));
        }
        return;
    }
    paintOutline(p, toWidget(*m_currentRect));
    const QRectF rect = *m_currentRect;
    paintSizePill(p, rect, 12, 0.75,
                  [&](const QSizeF& text) { return geometry::selectionLabelBox(rect, text); });
}

RegionSelectionWindowController::RegionSelectionWindowController(std::function<bool()> compositing,
                                                                 WindowFrames windows,
                                                                 std::shared_ptr<ScreenStills> stills)
    : m_compositing(std::move(compositing)), m_windowFrames(std::move(windows)),
      m_stills(stills ? std::move(stills) : std::make_shared<ScreenStills>())
{
}

RegionSelectionWindowController::~RegionSelectionWindowController()
{
    dismiss();
}

QList<DisplayInfo> RegionSelectionWindowController::displays() const
{
    QList<DisplayInfo> all;
    for (const QScreen* screen : QGuiApplication::screens()) {
        all.append(displayInfoFor(screen));
    }
    return all;
}

void RegionSelectionWindowController::show(const std::optional<LastRegion>& last)
{
    dismiss();
    m_stills->forget(); // a new capture: the screen as it is now
    const bool compositing = m_compositing && m_compositing();
    const std::optional<QList<QRect>> windows = m_windowFrames ? m_windowFrames() : std::nullopt;
    for (QScreen* screen : QGuiApplication::screens()) {
        const DisplayInfo display = displayInfoFor(screen);
        const bool holdsLast = last && last->display == display;
        auto* view = new RegionSelectionView(
            screen, compositing ? QImage() : m_stills->stillOf(screen), windows,
            holdsLast ? std::optional(geometry::globalToView(last->region, display.frame)) : std::nullopt);
        const QPointer<QScreen> alive(screen);
        view->onRegionSelected = [this, alive, view](const QRectF& viewRect) {
            if (alive && onRegionSelected) {
                onRegionSelected(geometry::viewToGlobal(viewRect, view->display().frame), view->display());
            }
        };
        view->onEscape = [this] {
            if (onCancelled) {
                onCancelled();
            }
        };
        // Return takes the last region, whichever overlay has the keyboard.
        view->onReturn = [this, last] {
            if (last && onRegionSelected) {
                onRegionSelected(last->region, last->display);
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
