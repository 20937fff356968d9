#pragma once

#include <QPointF>
#include <QRectF>
#include <QSizeF>
#include <QString>

#include <array>
#include <optional>

// The geometry of the capture overlays, the toolbar and the border, in the y-up space the capture
// flow works in (points, origin bottom-left, y upward). Widgets convert at their edges and only
// paint what these functions compute.
namespace vantalo::geometry {

// An overlay's view has its origin at its display's bottom-left corner.
QRectF viewToGlobal(const QRectF& viewRect, const QRectF& displayFrame);
QRectF globalToView(const QRectF& globalRect, const QRectF& displayFrame);

// The rectangle a drag spans, whichever way it went; never clamped to a display.
QRectF dragRect(const QPointF& start, const QPointF& current);
// A selection counts when it is more than 10 points in both directions.
bool isSelectable(const QRectF& rect);
// A press and release at most 2 points apart either way are a click, not a drag.
bool isClick(const QPointF& press, const QPointF& release);
// "640 × 480": the size in whole points, truncated.
QString sizeLabel(const QRectF& rect);
// The selection's size pill: centred over the rectangle, 8 points above its top edge.
QRectF selectionLabelBox(const QRectF& rect, const QSizeF& textSize);

enum class Handle
{
    topLeft,
    top,
    topRight,
    right,
    bottomRight,
    bottom,
    bottomLeft,
    left,
};
// In the order of hit testing and drawing.
inline constexpr std::array<Handle, 8> allHandles{Handle::topLeft,    Handle::top,         Handle::topRight,
                                                  Handle::right,      Handle::bottomRight, Handle::bottom,
                                                  Handle::bottomLeft, Handle::left};
inline constexpr double handleRadius = 5;
inline constexpr double handleReach = 15; // radius plus 10 points of grace
inline constexpr double minimumSide = 20;

QPointF handleCentre(Handle handle, const QRectF& region);
// The first handle, in order, within 15 points of p.
std::optional<Handle> hitHandle(const QPointF& p, const QRectF& region);
// A drag from p moves the region when p is inside it grown by 2 points.
bool startsMove(const QPointF& p, const QRectF& region);
QRectF movedRegion(const QRectF& base, const QPointF& delta);
// The handle's edges follow the drag; then each side is kept at least 20 points, the edge the
// handle does not hold giving way (for a top or bottom handle, the right edge).
QRectF resizedRegion(Handle handle, const QRectF& base, const QPointF& delta);

// A typed size: "1280 × 720", "1280x720", "1280 720" (whole points, each side at least 20).
std::optional<QSizeF> parseSize(const QString& text);
// The region at `size` with its top-left corner kept, moved back onto the view where it would
// leave it; no larger than the view.
QRectF resizedTo(const QRectF& region, const QSizeF& size, const QSizeF& viewSize);
// The sizes offered beside a typed one.
inline constexpr std::array<QSizeF, 4> sizePresets{QSizeF(640, 360), QSizeF(800, 600), QSizeF(1280, 720),
                                                   QSizeF(1920, 1080)};

enum class CursorShape
{
    crosshair,
    resizeUpDown,
    resizeLeftRight,
    openHand,
    closedHand,
    arrow,
};
CursorShape handleCursor(Handle handle);
// Over a handle its cursor, inside the region an open hand, elsewhere the arrow.
CursorShape cursorAt(const QPointF& p, const QRectF& region);

// The preview's size pill: 8 points below the region, or inside its bottom edge when that would
// leave the display or the toolbar stands there; kept 8 points inside the view's left and right
// edges. `viewSize` is the display's, the region in its y-up coordinates.
QRectF previewLabelBox(const QRectF& region, const QSizeF& textSize, const QSizeF& viewSize);

// The toolbar panel, whole on the region's display: centred on the region with its bar (20 points
// inside the panel) 14 points above the region's top edge; where that would leave the display,
// 14 points below its bottom edge; where that would too (a region as tall as the display), 14
// points inside its top edge. Moved sideways where the region's centre lies near a side.
QRectF toolbarFrame(const QRectF& region, const QSizeF& panelSize, const QRectF& display);
inline constexpr double toolbarPadding = 20;
inline constexpr double toolbarGap = 14;
inline constexpr double toolbarBarHeight = 40;
enum class ToolbarSide
{
    above,
    below,
    inside,
};
// Where a capsule `barHeight` points high goes for the region, by the rule above.
ToolbarSide toolbarSide(const QRectF& region, double barHeight, const QRectF& display);
// The capsule inside a panel of that frame.
QRectF toolbarBar(const QRectF& panelFrame);

// The pointer's last column and row of pixels stand for the display's far edges, which the
// pointer itself never reaches: a drag to the bottom-right corner takes the whole display.
QPointF snappedToViewEdges(const QPointF& viewPoint, const QSizeF& viewSize);

// The border window (the region grown by the ring's width) and its stroke's rectangle inside it
// (inset 2).
QRectF borderFrame(const QRectF& region, double ringWidth);
QRectF borderPathRect(const QSizeF& windowSize);

} // namespace vantalo::geometry
