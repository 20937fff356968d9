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

    void show(const QRectF& region) override;
    void hide() override;
    std::optional<QSizeF> panelSize() const override;
    void movePanel(const QPointF& origin) override;
    RecordingToolbarState& toolbarState() override { return m_state; }
    RecordingToolbarPanel* panel() const { return m_panel; }

private:
    std::function<bool()> m_compositing;
    InputRegionSetter m_inputRegion;
    RecordingToolbarState m_state;
    QPointer<RecordingToolbarPanel> m_panel;
    QList<QPointer<RecordingToolbarPanel>> m_fading;
};

} // namespace vantalo
