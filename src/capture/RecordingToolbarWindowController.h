#pragma once

#include "CaptureCollaborators.h"
#include "RecordingToolbarPanel.h"
#include "RecordingToolbarState.h"

#include <QList>
#include <QPointer>

#include <functional>

namespace vantalo {

class RecordingToolbarWindowController final : public ToolbarPresenter
{
public:
    explicit RecordingToolbarWindowController(std::function<bool()> compositing,
                                              InputRegionSetter inputRegion = {});
    ~RecordingToolbarWindowController() override;

    void show(const QRectF& region, const QRectF& display) override;
    void hide() override;
    std::optional<QSizeF> panelSize() const override;
    void follow(const QRectF& region) override;
    RecordingToolbarState& toolbarState() override { return m_state; }
    RecordingToolbarPanel* panel() const { return m_panel; }

private:
    // The panel's frame for a size, and the region it keeps off, in global Qt coordinates.
    QRect placedFrame(const QSize& size) const;
    QRect regionOnScreen() const;

    std::function<bool()> m_compositing;
    QRectF m_region;
    QRectF m_display;
    InputRegionSetter m_inputRegion;
    RecordingToolbarState m_state;
    QPointer<RecordingToolbarPanel> m_panel;
    QList<QPointer<RecordingToolbarPanel>> m_fading;
};

} // namespace vantalo
