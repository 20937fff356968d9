#include "RecordingToolbarWindowController.h"

#include "common/Geometry.h"
#include "common/RegionGeometry.h"

#include <QGuiApplication>
#include <QPropertyAnimation>
#include <QScreen>

namespace vantalo {

namespace {

QRectF primaryGeometry()
{
    return QRectF(QGuiApplication::primaryScreen()->geometry());
}

} // namespace

RecordingToolbarWindowController::RecordingToolbarWindowController(std::function<bool()> compositing,
                                                                   InputRegionSetter inputRegion)
    : m_compositing(std::move(compositing)), m_inputRegion(std::move(inputRegion))
{
}

RecordingToolbarWindowController::~RecordingToolbarWindowController()
{
    delete m_panel.data();
    for (const QPointer<RecordingToolbarPanel>& fading : std::as_const(m_fading)) {
        delete fading.data();
    }
}

void RecordingToolbarWindowController::show(const QRectF& region, const QRectF& display)
{
    hide();
    m_region = region;
    m_display = display;
    const bool compositing = m_compositing && m_compositing();
    auto* panel = new RecordingToolbarPanel(m_state, compositing, m_inputRegion);
    panel->onPressed = [this](RecordingToolbarPanel::Button button) {
        // The callbacks in force at the moment of the press.
        if (button == RecordingToolbarPanel::Button::restart) {
            if (onRestart) {
                onRestart();
            }
        } else if (button == RecordingToolbarPanel::Button::pauseResume) {
            if (onPauseResume) {
                onPauseResume();
            }
        } else if (m_state.isRecording()) {
            if (onStop) {
                onStop();
            }
        } else if (onStart) {
            onStart();
        }
    };
    panel->place = [this](const QSize& size) { return placedFrame(size); };
    panel->setKeepOut(regionOnScreen());
    if (compositing) {
        panel->setWindowOpacity(0.0);
    }
    panel->show();
    if (compositing) {
        auto* fade = new QPropertyAnimation(panel, "windowOpacity", panel);
        fade->setDuration(200);
        fade->setEasingCurve(QEasingCurve::OutCubic);
        fade->setEndValue(1.0);
        fade->start(QAbstractAnimation::DeleteWhenStopped);
    }
    m_panel = panel;
}

void RecordingToolbarWindowController::hide()
{
    if (!m_panel) {
        return;
    }
    QPointer<RecordingToolbarPanel> panel = m_panel;
    m_panel = nullptr;
    m_state.stopTimer();
    m_state.setElapsedSeconds(0);
    if (m_compositing && m_compositing()) {
        auto* fade = new QPropertyAnimation(panel, "windowOpacity", panel);
        fade->setDuration(150);
        fade->setEndValue(0.0);
        QObject::connect(fade, &QPropertyAnimation::finished, panel, &QWidget::close);
        fade->start(QAbstractAnimation::DeleteWhenStopped);
        m_fading.removeAll(nullptr);
        m_fading.append(panel);
    } else {
        panel->close();
    }
}

std::optional<QSizeF> RecordingToolbarWindowController::panelSize() const
{
    if (!m_panel) {
        return std::nullopt;
    }
    return QSizeF(m_panel->size());
}

void RecordingToolbarWindowController::follow(const QRectF& region)
{
    m_region = region;
    if (m_panel) {
        m_panel->setKeepOut(regionOnScreen());
    }
}

QRect RecordingToolbarWindowController::placedFrame(const QSize& size) const
{
    return toQtRect(geometry::toolbarFrame(m_region, QSizeF(size), m_display), primaryGeometry()).toRect();
}

QRect RecordingToolbarWindowController::regionOnScreen() const
{
    return toQtRect(m_region, primaryGeometry()).toAlignedRect();
}

} // namespace vantalo
