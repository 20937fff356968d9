#pragma once

#include <QRectF>

namespace vantalo {

// Where the history window's cells go: as many columns as fit at 140 points or more each, sharing
// the width up to 200 points each, 12 apart, centred, 16 points in from every edge.
struct HistoryGridLayout
{
    static constexpr double padding = 16;
    static constexpr double spacing = 12;
    static constexpr double minimumColumnWidth = 140;
    static constexpr double maximumColumnWidth = 200;

    int columns = 1;
    double columnWidth = minimumColumnWidth;
    double cellHeight = 0;
    double left = padding; // x of the first column

    // For a grid `width` points wide (the window's content) and cells `cellHeight` high.
    static HistoryGridLayout forWidth(double width, double cellHeight);

    QRectF cellRect(int index) const;
    double contentHeight(int itemCount) const;
    // The first and one past the last cell that show between y = top and y = bottom.
    std::pair<int, int> visibleRange(double top, double bottom, int itemCount) const;
    // The cell under a point, or -1.
    int cellAt(const QPointF& point, int itemCount) const;
};

} // namespace vantalo
