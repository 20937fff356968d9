#pragma once

#include "OverlayWindow.h"
#include "capture/CaptureCollaborators.h"
#include "common/RegionGeometry.h"

#include <QPointer>

#include <optional>

namespace vantalo {

// The chosen region on its display, dimmed at 0.38 around it, outlined, with eight handles and
// its size. Dragging inside moves it, dragging a handle resizes it; every step is reported.
class RegionPreviewView : public OverlayWindow
{
    Q_OBJECT
public:
    RegionPreviewView(QScreen* screen, bool compositing, const QRectF& region);

    QRectF region() const { return m_region; }
    std::function<void(const QRectF& viewRegion)> onRegionChanged;

protected:
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

private:
    void updateCursor(const QPointF& viewPoint);

    QRectF m_region;
    std::optional<geometry::Handle> m_activeHandle;
    bool m_isMoving = false;
    QPointF m_dragStart;
    QRectF m_baseRegion;
};

class RegionPreviewOverlay final : public RegionAdjuster
{
public:
    explicit RegionPreviewOverlay(std::function<bool()> compositing) : m_compositing(std::move(compositing))
    {
    }
    ~RegionPreviewOverlay() override { hide(); }

    void show(const DisplayInfo& display, const QRectF& region) override;
    void hide() override;
    RegionPreviewView* window() const { return m_window; }

private:
    std::function<bool()> m_compositing;
    QPointer<RegionPreviewView> m_window;
};

} // namespace vantalo
