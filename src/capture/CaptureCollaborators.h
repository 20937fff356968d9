#pragma once

#include "LastRegion.h"
#include "common/Geometry.h"

#include <QImage>
#include <QPointF>
#include <QRectF>
#include <QSizeF>

#include <functional>
#include <optional>

namespace vantalo {

class RecordingToolbarState;

// The on-screen pieces of a capture, as the coordinator drives them. All rectangles are in the
// y-up global space of common/Geometry.h. Callbacks are set by the coordinator and called on the
// GUI thread.

// Covers every display and lets the user drag a rectangle, or take the last region again.
class RegionSelector
{
public:
    virtual ~RegionSelector() = default;
    virtual void show(const std::optional<LastRegion>& last) = 0;
    virtual void dismiss() = 0;
    // The displays as they are now.
    virtual QList<DisplayInfo> displays() const = 0;

    std::function<void(const QRectF& region, const DisplayInfo& display)> onRegionSelected;
    std::function<void()> onCancelled;
};

// Shows the chosen region with handles to move and resize it.
class RegionAdjuster
{
public:
    virtual ~RegionAdjuster() = default;
    virtual void show(const DisplayInfo& display, const QRectF& region) = 0;
    virtual void hide() = 0;
    // Large in the middle of the region: the seconds left before the recording; 0 takes it away.
    virtual void showCountdown(int secondsLeft) = 0;
    // The display as it was before the overlays covered it, where they had to take a picture of it
    // (no compositor keeps covered windows' pictures); a null image otherwise.
    virtual QImage stillOf(const QString& displayName) const
    {
        Q_UNUSED(displayName);
        return {};
    }

    std::function<void(const QRectF& region)> onRegionChanged;
    std::function<void()> onCancelled;
    // Return or Enter: record the region as it is.
    std::function<void()> onConfirmed;
};

// The floating toolbar above the region: Start, then Restart, Pause or Resume, Stop and the
// elapsed time.
class ToolbarPresenter
{
public:
    virtual ~ToolbarPresenter() = default;
    // For `region` on the display whose frame is `display` (both y-up, global).
    virtual void show(const QRectF& region, const QRectF& display) = 0;
    virtual void hide() = 0;
    // The panel's size while it is shown.
    virtual std::optional<QSizeF> panelSize() const = 0;
    // Places the shown panel for the region as adjusted, as show does.
    virtual void follow(const QRectF& region) = 0;
    virtual RecordingToolbarState& toolbarState() = 0;

    // Read at the moment of the press, so callbacks set after show still apply.
    std::function<void()> onStart;
    std::function<void()> onRestart;
    std::function<void()> onPauseResume;
    std::function<void()> onStop;
};

// The red frame round the region while it is recorded; amber and still while the recording is
// paused, when dragging it moves the region (never off its display).
class BorderPresenter
{
public:
    virtual ~BorderPresenter() = default;
    // `display` is the frame of the region's display (y-up, global).
    virtual void show(const QRectF& region, const QRectF& display) = 0;
    virtual void hide() = 0;
    // The paused look, or back to recording; the border stays where it is.
    virtual void setPaused(bool paused) = 0;

    // While paused, as the border is dragged: the region where it now is.
    std::function<void(const QRectF& region)> onMoved;
};

// Whether this process may capture the screen; the request shows the system's own prompt where
// there is one.
class ScreenCapturePermission
{
public:
    virtual ~ScreenCapturePermission() = default;
    virtual bool preflight() = 0;
    virtual void request() = 0;
};

} // namespace vantalo
