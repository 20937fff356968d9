#pragma once

#include "OverlayWindow.h"
#include "capture/CaptureCollaborators.h"

#include <QList>
#include <QPointer>

#include <optional>

namespace vantalo {

// One overlay a display: dimmed at 0.3, the dragged rectangle clear with a dashed white outline
// and its size above it. A rectangle larger than 10 × 10 points is reported in global
// coordinates with its display; Escape cancels.
class RegionSelectionView : public OverlayWindow
{
    Q_OBJECT
public:
    RegionSelectionView(QScreen* screen, bool compositing);

    std::optional<QRectF> currentRect() const { return m_currentRect; }
    std::function<void(const QRectF& viewRect)> onRegionSelected;

protected:
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

private:
    std::optional<QPointF> m_dragStart;
    std::optional<QRectF> m_currentRect;
};

class RegionSelectionWindowController final : public RegionSelector
{
public:
    explicit RegionSelectionWindowController(std::function<bool()> compositing);
    ~RegionSelectionWindowController() override;

    void show() override;
    void dismiss() override;
    QList<RegionSelectionView*> windows() const;

private:
    std::function<bool()> m_compositing;
    QList<QPointer<RegionSelectionView>> m_windows;
};

} // namespace vantalo
