#pragma once

#include "CaptureCollaborators.h"

#include <QPointer>
#include <QWidget>

#include <functional>

namespace vantalo {

// The red frame 2 points outside the recorded region. Clicks pass through it; it only covers a
// ring round the region, so nothing of it is ever captured.
class RecordingBorderOverlay final : public BorderPresenter
{
public:
    explicit RecordingBorderOverlay(std::function<bool()> compositing) : m_compositing(std::move(compositing))
    {
    }
    ~RecordingBorderOverlay() override { hide(); }

    void show(const QRectF& region) override;
    void hide() override;
    QWidget* window() const { return m_window; }

private:
    std::function<bool()> m_compositing;
    QPointer<QWidget> m_window;
};

} // namespace vantalo
