#include "HistoryGridLayout.h"

#include <algorithm>
#include <cmath>

namespace vantalo {

HistoryGridLayout HistoryGridLayout::forWidth(double width, double cellHeight)
{
    HistoryGridLayout layout;
    layout.cellHeight = cellHeight;
    const double available = std::max(0.0, width - 2 * padding);
    layout.columns = std::max(1, int(std::floor((available + spacing) / (minimumColumnWidth + spacing))));
    const double shared = (available - (layout.columns - 1) * spacing) / layout.columns;
    layout.columnWidth = std::clamp(shared, 1.0, maximumColumnWidth);
    const double used = layout.columns * layout.columnWidth + (layout.columns - 1) * spacing;
    layout.left = padding + std::max(0.0, (available - used) / 2);
    return layout;
}

QRectF HistoryGridLayout::cellRect(int index) const
{
    const int row = index / columns;
    const int column = index % columns;
    return {left + column * (columnWidth + spacing), padding + row * (cellHeight + spacing), columnWidth,
            cellHeight};
}

double HistoryGridLayout::contentHeight(int itemCount) const
{
    const int rows = (itemCount + columns - 1) / columns;
    return rows == 0 ? 0 : 2 * padding + rows * cellHeight + (rows - 1) * spacing;
}

std::pair<int, int> HistoryGridLayout::visibleRange(double top, double bottom, int itemCount) const
{
    const double rowPitch = cellHeight + spacing;
    // A top edge in the spacing below a row starts with the next row.
    const int firstRow = std::max(0, int(std::floor((top - padding + spacing) / rowPitch)));
    const int lastRow = std::max(0, int(std::floor((bottom - padding) / rowPitch)));
    return {std::min(itemCount, firstRow * columns), std::min(itemCount, (lastRow + 1) * columns)};
}

int HistoryGridLayout::cellAt(const QPointF& point, int itemCount) const
{
    const auto [first, last] = visibleRange(point.y(), point.y(), itemCount);
    for (int i = first; i < last; ++i) {
        if (cellRect(i).contains(point)) {
            return i;
        }
    }
    return -1;
}

} // namespace vantalo
