#include "HistoryGridView.h"

#include "GifHistoryStore.h"
#include "HistoryStyle.h"
#include "common/Formatting.h"
#include "common/GifMovie.h"
#include "common/GifTransfer.h"
#include "common/Symbols.h"
#include "recording/GifRecoder.h"

#include <QContextMenuEvent>
#include <QMenu>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QPointer>
#include <QScrollBar>
#include <QSet>

namespace vantalo {

namespace {

constexpr double kCellPadding = 8;
constexpr double kThumbnailHeight = 100;
constexpr double kStackSpacing = 4;
constexpr double kDeleteButtonSide = 24; // a 16-point symbol padded by 4

QRectF thumbnailFrame(const QRectF& cell)
{
    return {cell.x() + kCellPadding, cell.y() + kCellPadding, cell.width() - 2 * kCellPadding,
            kThumbnailHeight};
}

} // namespace

using namespace history;

HistoryGridView::HistoryGridView(HistoryViewModel& model, QWidget* parent)
    : QAbstractScrollArea(parent), m_model(model)
{
    setFrameShape(QFrame::NoFrame);
    setVerticalScrollBarPolicy(Qt::ScrollBarAsNeeded);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    viewport()->setMouseTracking(true);
    viewport()->setBackgroundRole(QPalette::Window);
    verticalScrollBar()->setSingleStep(24);
    connect(&m_model, &HistoryViewModel::itemsChanged, this, [this] {
        m_hovered = -1;
        relayout();
    });
}

double HistoryGridView::cellHeight() const
{
    const double line = QFontMetricsF(captionFont()).height();
    return 2 * kCellPadding + kThumbnailHeight + 2 * kStackSpacing + 2 * line;
}

HistoryGridLayout HistoryGridView::gridLayout() const
{
    // The whole width, scroll bar included: the bar sits in the right-hand padding, so the
    // columns do not change when it appears.
    return HistoryGridLayout::forWidth(width(), cellHeight());
}

QRectF HistoryGridView::cellRectInViewport(int index) const
{
    return gridLayout().cellRect(index).translated(0, -verticalScrollBar()->value());
}

QRectF HistoryGridView::deleteButtonRect(int index) const
{
    const QRectF frame = thumbnailFrame(cellRectInViewport(index));
    return {frame.right() - kDeleteButtonSide, frame.top(), kDeleteButtonSide, kDeleteButtonSide};
}

void HistoryGridView::relayout()
{
    const HistoryGridLayout layout = gridLayout();
    const int content = int(std::ceil(layout.contentHeight(int(m_model.items().size()))));
    verticalScrollBar()->setPageStep(viewport()->height());
    verticalScrollBar()->setRange(0, std::max(0, content - viewport()->height()));
    syncThumbnails();
    viewport()->update();
}

void HistoryGridView::syncThumbnails()
{
    if (!isVisible()) {
        m_thumbnails.clear();
        return;
    }
    const HistoryGridLayout layout = gridLayout();
    const double top = verticalScrollBar()->value();
    const auto [first, last] =
        layout.visibleRange(top, top + viewport()->height(), int(m_model.items().size()));
    QSet<QUuid> visible;
    for (int i = first; i < last; ++i) {
        visible.insert(m_model.items().at(i).id);
    }
    std::erase_if(m_thumbnails, [&visible](const auto& entry) { return !visible.contains(entry.first); });
    const QSizeF frame(layout.columnWidth - 2 * kCellPadding, kThumbnailHeight);
    for (int i = first; i < last; ++i) {
        const GifHistoryItem& item = m_model.items().at(i);
        auto found = m_thumbnails.find(item.id);
        if (found != m_thumbnails.end()) {
            Thumbnail& kept = found->second;
            kept.index = i; // cells move up when one above is deleted
            if (kept.frame != frame.toSize()) {
                m_thumbnails.erase(found); // the column width changed: decode at the new size
            } else {
                continue;
            }
        }
        Thumbnail thumbnail;
        thumbnail.frame = frame.toSize();
        thumbnail.index = i;
        // A missing or unreadable GIF leaves the picture empty; the texts still show.
        if (std::optional<FittedMovie> fitted =
                openFittedMovie(m_model.store().filePath(item), frame.toSize())) {
            thumbnail.fitted = fitted->size;
            thumbnail.movie = std::move(fitted->movie);
            const QUuid id = item.id;
            connect(thumbnail.movie.get(), &QMovie::frameChanged, viewport(), [this, id] {
                const auto shown = m_thumbnails.find(id);
                if (shown != m_thumbnails.end()) {
                    viewport()->update(
                        thumbnailFrame(cellRectInViewport(shown->second.index)).toAlignedRect());
                }
            });
            thumbnail.movie->start();
        }
        m_thumbnails.emplace(item.id, std::move(thumbnail));
    }
}

void HistoryGridView::paintEvent(QPaintEvent* event)
{
    QPainter p(viewport());
    p.setRenderHint(QPainter::Antialiasing);
    p.setRenderHint(QPainter::SmoothPixmapTransform);
    const HistoryGridLayout layout = gridLayout();
    const double top = verticalScrollBar()->value();
    const auto [first, last] = layout.visibleRange(top + event->rect().top(), top + event->rect().bottom(),
                                                   int(m_model.items().size()));
    const QFont caption = captionFont();
    const double line = QFontMetricsF(caption).height();
    p.setFont(caption);
    for (int i = first; i < last; ++i) {
        const GifHistoryItem& item = m_model.items().at(i);
        const QRectF cell = layout.cellRect(i).translated(0, -top);
        if (i == m_hovered) {
            QColor tint = palette().color(QPalette::WindowText);
            tint.setAlphaF(0.06f);
            p.setPen(Qt::NoPen);
            p.setBrush(tint);
            p.drawRoundedRect(cell, 8, 8);
        }
        const QRectF frame = thumbnailFrame(cell);
        const auto found = m_thumbnails.find(item.id);
        if (found != m_thumbnails.end() && found->second.movie) {
            const Thumbnail& thumbnail = found->second;
            QRectF picture(QPointF(), QSizeF(thumbnail.fitted));
            picture.moveCenter(frame.center());
            QPainterPath clip;
            clip.addRoundedRect(picture, 6, 6);
            p.save();
            p.setClipPath(clip);
            p.drawImage(picture, thumbnail.movie->currentImage());
            p.restore();
        }
        if (i == m_hovered) {
            const QRectF button = deleteButtonRect(i).adjusted(4, 4, -4, -4);
            paintSymbol(p, Symbol::xmarkCircleFill, button.adjusted(-1, -1, 1, 1), QColor(0, 0, 0, 84), 1);
            paintSymbol(p, Symbol::xmarkCircleFill, button, Qt::white, 1);
        }
        const double textTop = frame.bottom() + kStackSpacing;
        const QRectF dateLine(cell.left() + kCellPadding, textTop, frame.width(), line);
        p.setPen(secondary(palette()));
        p.drawText(
            dateLine, Qt::AlignHCenter | Qt::AlignTop,
            QFontMetricsF(caption).elidedText(dateTimeLabel(item.createdAt), Qt::ElideRight, frame.width()));
        p.setPen(secondary(palette(), 0.7));
        p.drawText(dateLine.translated(0, line + kStackSpacing), Qt::AlignHCenter | Qt::AlignTop,
                   fileSizeLabel(item.fileSize));
    }
}

void HistoryGridView::resizeEvent(QResizeEvent* event)
{
    QAbstractScrollArea::resizeEvent(event);
    relayout();
}

void HistoryGridView::scrollContentsBy(int, int)
{
    syncThumbnails();
    viewport()->update();
}

void HistoryGridView::showEvent(QShowEvent* event)
{
    QAbstractScrollArea::showEvent(event);
    relayout();
}

void HistoryGridView::setHovered(int index)
{
    if (index == m_hovered) {
        return;
    }
    const int previous = m_hovered;
    m_hovered = index;
    for (int i : {previous, index}) {
        if (i >= 0) {
            viewport()->update(cellRectInViewport(i).toAlignedRect().adjusted(-1, -1, 1, 1));
        }
    }
}

void HistoryGridView::mousePressEvent(QMouseEvent* event)
{
    if (event->button() == Qt::LeftButton) {
        m_pressedAt = event->position().toPoint();
    }
}

void HistoryGridView::mouseMoveEvent(QMouseEvent* event)
{
    const QPointF content = event->position() + QPointF(0, verticalScrollBar()->value());
    setHovered(gridLayout().cellAt(content, int(m_model.items().size())));
    if (!m_pressedAt || (event->position().toPoint() - *m_pressedAt).manhattanLength() <= dragThresholdPx) {
        return;
    }
    const QPointF pressed = *m_pressedAt + QPointF(0, verticalScrollBar()->value());
    m_pressedAt.reset();
    const int index = gridLayout().cellAt(pressed, int(m_model.items().size()));
    if (index < 0 || deleteButtonRect(index).contains(pressed - QPointF(0, verticalScrollBar()->value()))) {
        return;
    }
    const GifHistoryItem item = m_model.items().at(index);
    const auto thumbnail = m_thumbnails.find(item.id);
    dragGifFile(m_model.store().filePath(item),
                thumbnail != m_thumbnails.end() ? thumbnail->second.movie->currentPixmap() : QPixmap());
}

void HistoryGridView::leaveEvent(QEvent*)
{
    setHovered(-1);
}

void HistoryGridView::mouseReleaseEvent(QMouseEvent* event)
{
    const bool pressed = m_pressedAt.has_value();
    m_pressedAt.reset();
    if (event->button() != Qt::LeftButton || !pressed) {
        return;
    }
    const QPointF content = event->position() + QPointF(0, verticalScrollBar()->value());
    const int index = gridLayout().cellAt(content, int(m_model.items().size()));
    if (index < 0) {
        return;
    }
    const GifHistoryItem item = m_model.items().at(index);
    if (deleteButtonRect(index).contains(event->position())) {
        m_model.deleteItem(item);
        // The pointer now rests on whichever cell moved up under it.
        setHovered(gridLayout().cellAt(content, int(m_model.items().size())));
    } else {
        m_model.select(item);
    }
}

QMenu* HistoryGridView::makeContextMenu(int index)
{
    auto* menu = new QMenu(this);
    menu->setAttribute(Qt::WA_DeleteOnClose);
    if (index < 0 || index >= m_model.items().size()) {
        return menu;
    }
    const GifHistoryItem item = m_model.items().at(index);
    // Each action acts on the item, and on the model only while it is there.
    const QPointer<HistoryViewModel> model(&m_model);
    const auto act = [model, item](std::function<void(HistoryViewModel&, const GifHistoryItem&)> action) {
        return [model, item, action] {
            if (model) {
                action(*model, item);
            }
        };
    };
    QMenu* fit = menu->addMenu(QStringLiteral("Fit"));
    for (const FitPreset& preset : fitPresets()) {
        fit->addAction(preset.label, this,
                       act([bytes = preset.bytes](HistoryViewModel& m, const GifHistoryItem& i) {
                           if (m.onFit) {
                               m.onFit(i, bytes);
                           }
                       }));
    }
    const auto call = [](auto member) {
        return [member](HistoryViewModel& m, const GifHistoryItem& i) {
            if (m.*member) {
                (m.*member)(i);
            }
        };
    };
    menu->addAction(QStringLiteral("Trim and more\u2026"), this, act(call(&HistoryViewModel::onTrim)));
    menu->addSeparator();
    menu->addAction(QStringLiteral("Open"), this, act(call(&HistoryViewModel::onOpen)));
    menu->addAction(QStringLiteral("Copy"), this, act(call(&HistoryViewModel::onCopy)));
    menu->addSeparator();
    menu->addAction(QStringLiteral("Delete"), this,
                    act([](HistoryViewModel& m, const GifHistoryItem& i) { m.deleteItem(i); }));
    return menu;
}

void HistoryGridView::contextMenuEvent(QContextMenuEvent* event)
{
    const QPointF content = QPointF(event->pos()) + QPointF(0, verticalScrollBar()->value());
    const int index = gridLayout().cellAt(content, int(m_model.items().size()));
    if (index >= 0) {
        makeContextMenu(index)->popup(event->globalPos());
    }
}

} // namespace vantalo
