#include "RecordingBorderOverlay.h"

#include "RecordingBorderWindow.h"
#include "common/Geometry.h"
#include "common/RegionGeometry.h"

#include <QGuiApplication>
#include <QScreen>

#include <algorithm>

namespace vantalo {

namespace {
QRectF primaryGeometry()
{
    return QRectF(QGuiApplication::primaryScreen()->geometry());
}
} // namespace

QWidget* RecordingBorderOverlay::window() const
{
    return m_window;
}

void RecordingBorderOverlay::show(const QRectF& region, const QRectF& display)
{
    m_region = region;
    m_display = display;
    m_paused = false;
    open();
}

void RecordingBorderOverlay::setPaused(bool paused)
{
    if (!m_window || paused == m_paused) {
        return;
    }
    m_paused = paused;
    // Whether a window takes the pointer is fixed when it is made: a new one in the new look.
    open();
}

void RecordingBorderOverlay::open()
{
    hide();
    auto* window = new RecordingBorderWindow(m_compositing && m_compositing(), m_paused);
    window->onDragStarted = [this] { m_pressedRegion = m_region; };
    window->onDragged = [this](const QPoint& travel) {
        // Qt's y grows downward, the region's upward; the region stays whole on its display.
        QRectF moved = m_pressedRegion.translated(travel.x(), -travel.y());
        moved.moveLeft(std::clamp(moved.left(), m_display.left(),
                                  std::max(m_display.left(), m_display.right() - moved.width())));
        moved.moveTop(std::clamp(moved.top(), m_display.top(),
                                 std::max(m_display.top(), m_display.bottom() - moved.height())));
        if (moved == m_region) {
            return;
        }
        m_region = moved;
        place();
        if (onMoved) {
            onMoved(m_region);
        }
    };
    m_window = window;
    place();
    window->show();
}

void RecordingBorderOverlay::place()
{
    if (m_window) {
        m_window->setGeometry(
            toQtRect(geometry::borderFrame(m_region, m_window->ringWidth()), primaryGeometry()).toRect());
    }
}

void RecordingBorderOverlay::hide()
{
    if (m_window) {
        m_window->close();
    }
    m_window = nullptr;
}

} // namespace vantalo
