#pragma once

#include "HistoryGridLayout.h"
#include "HistoryViewModel.h"
#include "common/GifHistoryItem.h"

#include <QAbstractScrollArea>
#include <QMovie>

#include <map>
#include <memory>
#include <optional>

class QMenu;

namespace vantalo {

// The grid of kept GIFs. Cells are painted, not widgets, and only the cells in view have a
// decoder: a long history costs no more to open or scroll than a short one.
class HistoryGridView : public QAbstractScrollArea
{
    Q_OBJECT
public:
    explicit HistoryGridView(HistoryViewModel& model, QWidget* parent = nullptr);

    HistoryGridLayout gridLayout() const;
    // The GIFs being decoded and played now.
    int liveThumbnailCount() const { return int(m_thumbnails.size()); }
    int hoveredIndex() const { return m_hovered; }
    // Where a cell's delete button is, in viewport coordinates.
    QRectF deleteButtonRect(int index) const;
    QRectF cellRectInViewport(int index) const;
    // The context menu of a cell: Fit (the sizes), Trim and more…, Open, Copy, Delete.
    QMenu* makeContextMenu(int index);

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void scrollContentsBy(int dx, int dy) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void leaveEvent(QEvent* event) override;
    void contextMenuEvent(QContextMenuEvent* event) override;
    void showEvent(QShowEvent* event) override;

private:
    struct Thumbnail
    {
        std::unique_ptr<QMovie> movie;
        QSize frame; // the space it was fitted into
        QSize fitted;
        int index = 0; // its cell
    };
    void relayout();
    void syncThumbnails();
    double cellHeight() const;
    void setHovered(int index);

    HistoryViewModel& m_model;
    std::map<QUuid, Thumbnail> m_thumbnails;
    int m_hovered = -1;
    // A press on a cell: a click opens it, a drag takes its file out.
    std::optional<QPoint> m_pressedAt;
};

} // namespace vantalo
