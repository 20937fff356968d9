#include "RecordingBorderOverlay.h"

#include "RecordingBorderWindow.h"
#include "common/Geometry.h"
#include "common/RegionGeometry.h"

#include <QGuiApplication>
#include <QScreen>

namespace vantalo {

void RecordingBorderOverlay::show(const QRectF& region)
{
    hide();
    auto* window = new RecordingBorderWindow(m_compositing && m_compositing());
    window->setGeometry(
        toQtRect(geometry::borderFrame(region), QRectF(QGuiApplication::primaryScreen()->geometry()))
            .toRect());
    window->show();
    m_window = window;
}

void RecordingBorderOverlay::hide()
{
    if (m_window) {
        m_window->close();
    }
    m_window = nullptr;
}

} // namespace vantalo
