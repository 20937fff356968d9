#pragma once

#include "GifHistoryItem.h"
#include "HistoryGridLayout.h"
#include "HistoryStore.h"

#include <QAbstractScrollArea>
#include <QMovie>
#include <QObject>
#include <QPointer>
#include <QWidget>

#include <functional>
#include <map>
#include <memory>

class QLabel;
class QMenu;
class QStackedLayout;

namespace vantalo {

class GifHistoryStore;

// The list the history window shows; it shrinks as the window deletes.
class HistoryViewModel : public QObject
{
    Q_OBJECT
public:
    explicit HistoryViewModel(GifHistoryStore& store);

    const QList<GifHistoryItem>& items() const { return m_items; }
    GifHistoryStore& store() const { return m_store; }
    // The actions on an item, besides deleting it.
    std::function<void(const GifHistoryItem&)> onSelect;
    std::function<void(const GifHistoryItem&, qint64 budget)> onFit;
    std::function<void(const GifHistoryItem&)> onTrim;
    std::function<void(const GifHistoryItem&)> onCopy;
    std::function<void(const GifHistoryItem&)> onOpen;

    void select(const GifHistoryItem& item);
    // Removes the GIF and its entry for good.
    void deleteItem(const GifHistoryItem& item);
    // Reads the list again.
    void reload();

Q_SIGNALS:
    void itemsChanged();

private:
    QList<GifHistoryItem> m_items;
    GifHistoryStore& m_store;
};

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

// The window's content: the grid, or the empty state when there is nothing to show.
class HistoryPanelView : public QWidget
{
    Q_OBJECT
public:
    HistoryPanelView(HistoryViewModel& model, const QString& shortcutLabel, QWidget* parent = nullptr);

    bool showsEmptyState() const;
    HistoryGridView* grid() const { return m_grid; }
    QString emptyHint() const;

private:
    void refresh();

    HistoryViewModel& m_model;
    QStackedLayout* m_stack;
    HistoryGridView* m_grid;
    QWidget* m_empty;
    QLabel* m_hint;
};

// Opens the "GIF History" window, or brings it forward while it is open. A closed window is made
// afresh, with the list read again.
class HistoryPanelController final : public HistoryWindowPresenter
{
public:
    // `shortcutLabel` names the recording shortcut in the empty state's hint.
    HistoryPanelController(GifHistoryStore& store, std::function<QString()> shortcutLabel);
    ~HistoryPanelController() override;

    void show() override;
    void reload() override;
    QWidget* window() const { return m_window; }
    HistoryViewModel* viewModel() const { return m_viewModel; }

private:
    GifHistoryStore& m_store;
    std::function<QString()> m_shortcutLabel;
    QPointer<QWidget> m_window;
    QPointer<HistoryViewModel> m_viewModel;
};

} // namespace vantalo
