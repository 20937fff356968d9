#pragma once

#include "OverlayWindow.h"
#include "ScreenStills.h"
#include "capture/CaptureCollaborators.h"

#include <QList>
#include <QPointer>

#include <optional>

namespace vantalo {

// The applications' windows (global Qt coordinates, topmost first), or nothing where they cannot
// be seen.
using WindowFrames = std::function<std::optional<QList<QRect>>()>;

// One overlay a display: dimmed at 0.3, the dragged rectangle clear with a dashed outline and its
// size above it. A rectangle larger than 10 × 10 points is reported in global coordinates with its
// display; a click without a drag takes the window under the pointer (outlined while the pointer
// is over it), or the whole display where there is none; Escape cancels. A hint at the top says
// so for the first seconds. The last recorded region, when it is on this display, is outlined with
// its size; a click inside it takes it again.
class RegionSelectionView : public OverlayWindow
{
    Q_OBJECT
public:
    // `windows` in global Qt coordinates, topmost first; nothing where they cannot be seen.
    RegionSelectionView(QScreen* screen, const QImage& still, const std::optional<QList<QRect>>& windows,
                        const std::optional<QRectF>& lastRegion = std::nullopt);

    std::optional<QRectF> currentRect() const { return m_currentRect; }
    // The line at the top: the hint, or why the last drag chose nothing.
    QString message() const { return m_message; }
    std::function<void(const QRectF& viewRect)> onRegionSelected;

    static constexpr int hintMs = 5000;
    static inline const QString tooSmallText = QStringLiteral("Too small \u2014 drag a larger area");

protected:
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

private:
    // What a click at `p` takes (view coordinates): the window there, cut to the display, or the
    // whole display.
    QRectF clickedRect(const QPointF& p) const;
    std::optional<QRectF> windowAt(const QPointF& p) const;
    static void paintOutline(QPainter& p, const QRectF& widgetRect);

    std::optional<QPointF> m_dragStart;
    std::optional<QRectF> m_currentRect;
    std::optional<QList<QRectF>> m_windows; // view coordinates, topmost first
    std::optional<QRectF> m_hoveredWindow;
    std::optional<QRectF> m_lastRegion; // view coordinates
    QString m_message;
};

class RegionSelectionWindowController final : public RegionSelector
{
public:
    // `stills` is shared with the region preview, which paints the same stills.
    explicit RegionSelectionWindowController(std::function<bool()> compositing, WindowFrames windows = {},
                                             std::shared_ptr<ScreenStills> stills = {});
    ~RegionSelectionWindowController() override;

    void show(const std::optional<LastRegion>& last) override;
    void dismiss() override;
    QList<DisplayInfo> displays() const override;
    QList<RegionSelectionView*> windows() const;

private:
    std::function<bool()> m_compositing;
    WindowFrames m_windowFrames;
    std::shared_ptr<ScreenStills> m_stills;
    QList<QPointer<RegionSelectionView>> m_windows;
};

} // namespace vantalo
