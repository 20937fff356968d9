#include "RegionGeometry.h"

#include <QLineF>
#include <QRegularExpression>

#include <algorithm>
#include <cmath>

namespace vantalo::geometry {

QRectF viewToGlobal(const QRectF& viewRect, const QRectF& displayFrame)
{
    return viewRect.translated(displayFrame.topLeft());
}

QRectF globalToView(const QRectF& globalRect, const QRectF& displayFrame)
{
    return globalRect.translated(-displayFrame.topLeft());
}

QRectF dragRect(const QPointF& start, const QPointF& current)
{
    return {std::min(start.x(), current.x()), std::min(start.y(), current.y()),
            std::abs(current.x() - start.x()), std::abs(current.y() - start.y())};
}

bool isSelectable(const QRectF& rect)
{
    return rect.width() > 10 && rect.height() > 10;
}

bool isClick(const QPointF& press, const QPointF& release)
{
    return std::abs(press.x() - release.x()) <= 2 && std::abs(press.y() - release.y()) <= 2;
}

QString sizeLabel(const QRectF& rect)
{
    return QStringLiteral("%1 \u00D7 %2")
        .arg(static_cast<long long>(std::trunc(rect.width())))
        .arg(static_cast<long long>(std::trunc(rect.height())));
}

QRectF selectionLabelBox(const QRectF& rect, const QSizeF& text)
{
    const double width = text.width() + 16;
    return {rect.center().x() - width * 0.5, rect.y() + rect.height() + 8, width, text.height() + 8};
}

QPointF handleCentre(Handle handle, const QRectF& r)
{
    const double left = r.x();
    const double right = r.x() + r.width();
    const double bottom = r.y();
    const double top = r.y() + r.height();
    const double midX = left + r.width() / 2;
    const double midY = bottom + r.height() / 2;
    switch (handle) {
    case Handle::topLeft:
        return {left, top};
    case Handle::top:
        return {midX, top};
    case Handle::topRight:
        return {right, top};
    case Handle::right:
        return {right, midY};
    case Handle::bottomRight:
        return {right, bottom};
    case Handle::bottom:
        return {midX, bottom};
    case Handle::bottomLeft:
        return {left, bottom};
    case Handle::left:
        return {left, midY};
    }
    return {};
}

std::optional<Handle> hitHandle(const QPointF& p, const QRectF& region)
{
    for (Handle handle : allHandles) {
        if (QLineF(p, handleCentre(handle, region)).length() <= handleReach) {
            return handle;
        }
    }
    return std::nullopt;
}

bool startsMove(const QPointF& p, const QRectF& region)
{
    const QRectF grown = region.adjusted(-2, -2, 2, 2);
    return p.x() >= grown.x() && p.x() <= grown.x() + grown.width() && p.y() >= grown.y() &&
           p.y() <= grown.y() + grown.height();
}

QRectF movedRegion(const QRectF& base, const QPointF& delta)
{
    return base.translated(delta);
}

std::optional<QSizeF> parseSize(const QString& text)
{
    static const QRegularExpression pattern(
        QStringLiteral(R"(^\s*(\d{1,5})\s*(?:[x\x{00D7}*,]|\s)\s*(\d{1,5})\s*$)"),
        QRegularExpression::CaseInsensitiveOption);
    const QRegularExpressionMatch match = pattern.match(text);
    if (!match.hasMatch()) {
        return std::nullopt;
    }
    const QSizeF size(match.captured(1).toInt(), match.captured(2).toInt());
    if (size.width() < minimumSide || size.height() < minimumSide) {
        return std::nullopt;
    }
    return size;
}

QRectF resizedTo(const QRectF& region, const QSizeF& size, const QSizeF& viewSize)
{
    const QSizeF fitted = size.boundedTo(viewSize);
    QRectF r(region.left(), region.top() + region.height() - fitted.height(), fitted.width(),
             fitted.height());
    r.moveLeft(std::clamp(r.left(), 0.0, viewSize.width() - r.width()));
    r.moveTop(std::clamp(r.top(), 0.0, viewSize.height() - r.height()));
    return r;
}

QRectF resizedRegion(Handle handle, const QRectF& base, const QPointF& delta)
{
    double left = base.x();
    double right = base.x() + base.width();
    double bottom = base.y();
    double top = base.y() + base.height();
    const bool movesLeft =
        handle == Handle::topLeft || handle == Handle::bottomLeft || handle == Handle::left;
    const bool movesRight =
        handle == Handle::topRight || handle == Handle::bottomRight || handle == Handle::right;
    const bool movesBottom =
        handle == Handle::bottomLeft || handle == Handle::bottom || handle == Handle::bottomRight;
    const bool movesTop = handle == Handle::topLeft || handle == Handle::top || handle == Handle::topRight;
    if (movesLeft) {
        left += delta.x();
    }
    if (movesRight) {
        right += delta.x();
    }
    if (movesBottom) {
        bottom += delta.y();
    }
    if (movesTop) {
        top += delta.y();
    }
    if (right - left < minimumSide) {
        if (movesLeft) {
            left = right - minimumSide;
        } else {
            right = left + minimumSide;
        }
    }
    if (top - bottom < minimumSide) {
        if (movesBottom) {
            bottom = top - minimumSide;
        } else {
            top = bottom + minimumSide;
        }
    }
    return {left, bottom, right - left, top - bottom};
}

CursorShape handleCursor(Handle handle)
{
    switch (handle) {
    case Handle::top:
    case Handle::bottom:
        return CursorShape::resizeUpDown;
    case Handle::left:
    case Handle::right:
        return CursorShape::resizeLeftRight;
    default:
        return CursorShape::crosshair;
    }
}

CursorShape cursorAt(const QPointF& p, const QRectF& region)
{
    if (const auto handle = hitHandle(p, region)) {
        return handleCursor(*handle);
    }
    return startsMove(p, region) ? CursorShape::openHand : CursorShape::arrow;
}

QRectF previewLabelBox(const QRectF& region, const QSizeF& text, const QSizeF& viewSize)
{
    const double width = text.width() + 18;
    const double height = text.height() + 8;
    double y = region.y() - height - 8;
    if (y < 8 || toolbarSide(region, toolbarBarHeight, QRectF(QPointF(), viewSize)) == ToolbarSide::below) {
        y = region.y() + 8;
    }
    double x = std::max(region.center().x() - width * 0.5, 8.0);
    x = std::min(x, viewSize.width() - width - 8);
    return {x, y, width, height};
}

ToolbarSide toolbarSide(const QRectF& region, double barHeight, const QRectF& display)
{
    const double regionTop = region.y() + region.height(); // y-up
    if (regionTop + toolbarGap + barHeight <= display.y() + display.height()) {
        return ToolbarSide::above;
    }
    return region.y() - toolbarGap - barHeight >= display.y() ? ToolbarSide::below : ToolbarSide::inside;
}

QRectF toolbarFrame(const QRectF& region, const QSizeF& panelSize, const QRectF& display)
{
    const QSizeF bar = panelSize - QSizeF(2 * toolbarPadding, 2 * toolbarPadding);
    const double regionTop = region.y() + region.height(); // y-up
    const double displayTop = display.y() + display.height();
    double barBottom = 0;
    switch (toolbarSide(region, bar.height(), display)) {
    case ToolbarSide::above:
        barBottom = regionTop + toolbarGap;
        break;
    case ToolbarSide::below:
        barBottom = region.y() - toolbarGap - bar.height();
        break;
    case ToolbarSide::inside:
        barBottom = std::min(regionTop, displayTop) - toolbarGap - bar.height();
        break;
    }
    const double rightmost = display.x() + display.width() - bar.width();
    const double barLeft = std::max(display.x(), std::min(region.center().x() - bar.width() / 2, rightmost));
    return {barLeft - toolbarPadding, barBottom - toolbarPadding, panelSize.width(), panelSize.height()};
}

QRectF toolbarBar(const QRectF& panelFrame)
{
    return panelFrame.adjusted(toolbarPadding, toolbarPadding, -toolbarPadding, -toolbarPadding);
}

QPointF snappedToViewEdges(const QPointF& viewPoint, const QSizeF& viewSize)
{
    // y-up: the bottom row of pixels lies between 0 and 1.
    return {viewPoint.x() >= viewSize.width() - 1 ? viewSize.width() : viewPoint.x(),
            viewPoint.y() <= 1 ? 0.0 : viewPoint.y()};
}

QRectF borderFrame(const QRectF& region, double ringWidth)
{
    return region.adjusted(-ringWidth, -ringWidth, ringWidth, ringWidth);
}

QRectF borderPathRect(const QSizeF& windowSize)
{
    return QRectF(QPointF(), windowSize).adjusted(2, 2, -2, -2);
}

} // namespace vantalo::geometry
