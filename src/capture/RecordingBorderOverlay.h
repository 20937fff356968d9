#pragma once

#include "CaptureCollaborators.h"

#include <QPointer>
#include <QWidget>

#include <functional>

namespace vantalo {

class RecordingBorderWindow;

// The ring just outside the recorded region (RecordingBorderWindow), so nothing of it is ever
// captured: red and click-through while recording, amber and draggable while paused.
class RecordingBorderOverlay final : public BorderPresenter
{
public:
    explicit RecordingBorderOverlay(std::function<bool()> compositing) : m_compositing(std::move(compositing))
    {
    }
    ~RecordingBorderOverlay() override { hide(); }

    void show(const QRectF& region, const QRectF& display) override;
    void hide() override;
    void setPaused(bool paused) override;
    QWidget* window() const;

private:
    void open();
    void place();

    std::function<bool()> m_compositing;
    QRectF m_region;
    QRectF m_display;
    QRectF m_pressedRegion; // where the region was when the drag began
    bool m_paused = false;
    QPointer<RecordingBorderWindow> m_window;
};

} // namespace vantalo
