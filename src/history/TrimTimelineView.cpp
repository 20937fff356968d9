#include "TrimTimelineView.h"

#include <QMouseEvent>
#include <QPainter>

#include <cmath>

namespace vantalo {

namespace {

const QColor kHandle(255, 204, 0);

} // namespace

TrimTimelineView::TrimTimelineView(QWidget* parent) : QWidget(parent)
{
    setMinimumHeight(56);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    setCursor(Qt::SizeHorCursor);
}

void TrimTimelineView::setTimeline(const GifTimeline* timeline)
{
    m_timeline = timeline;
    if (timeline) {
        m_span = {0, timeline->frameCount()};
    }
    m_cells.clear();
    update();
}

void TrimTimelineView::setSpan(FrameSpan span)
{
    m_span = span;
    update();
}

void TrimTimelineView::setPlayhead(int frame)
{
    m_playhead = frame;
    update();
}

QRectF TrimTimelineView::stripRect() const
{
    return QRectF(rect()).adjusted(handleWidth, 4, -handleWidth, -4);
}

double TrimTimelineView::xOfTime(qint64 time) const
{
    const QRectF strip = stripRect();
    const qint64 total = starts().isEmpty() ? 0 : starts().last();
    return total > 0 ? strip.left() + strip.width() * double(time) / double(total) : strip.left();
}

int TrimTimelineView::handleX(Handle handle) const
{
    if (starts().isEmpty()) {
        return 0;
    }
    return int(std::lround(xOfTime(starts()[handle == Handle::start ? m_span.first : m_span.end])));
}

int TrimTimelineView::boundaryAt(double x) const
{
    int best = 0;
    for (int k = 1; k < starts().size(); ++k) {
        if (std::abs(xOfTime(starts()[k]) - x) < std::abs(xOfTime(starts()[best]) - x)) {
            best = k;
        }
    }
    return best;
}

void TrimTimelineView::resizeEvent(QResizeEvent*)
{
    m_cells.clear();
}

void TrimTimelineView::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const QRectF strip = stripRect();
    p.fillRect(strip, palette().color(QPalette::Dark));
    if (!m_timeline || m_timeline->frameCount() == 0) {
        return;
    }
    // The strip's pictures: one a cell as wide as the strip is high, each the frame shown there.
    const double cellWidth =
        std::max(16.0, strip.height() * m_timeline->size.width() / std::max(1, m_timeline->size.height()));
    const int cells = std::max(1, int(std::ceil(strip.width() / cellWidth)));
    if (m_cells.size() != cells) {
        m_cells.clear();
        for (int c = 0; c < cells; ++c) {
            const double x = strip.left() + (c + 0.5) * strip.width() / cells;
            const int frame = std::clamp(boundaryAt(x), 0, m_timeline->frameCount() - 1);
            m_cells.append(QPixmap::fromImage(m_timeline->preview(frame).scaled(
                QSize(int(std::ceil(strip.width() / cells)), int(strip.height())),
                Qt::KeepAspectRatioByExpanding, Qt::SmoothTransformation)));
        }
    }
    p.save();
    p.setClipRect(strip);
    for (int c = 0; c < cells; ++c) {
        const QRectF cell(strip.left() + c * strip.width() / cells, strip.top(), strip.width() / cells + 1,
                          strip.height());
        p.drawPixmap(cell, m_cells[c], QRectF(QPointF(), QSizeF(m_cells[c].size()).boundedTo(cell.size())));
    }
    // What is left out is dimmed.
    const double startX = handleX(Handle::start);
    const double endX = handleX(Handle::end);
    p.fillRect(QRectF(strip.left(), strip.top(), startX - strip.left(), strip.height()),
               QColor(0, 0, 0, 160));
    p.fillRect(QRectF(endX, strip.top(), strip.right() - endX, strip.height()), QColor(0, 0, 0, 160));
    p.restore();

    // The kept part framed, with a handle at each end.
    p.setPen(QPen(kHandle, 2));
    p.setBrush(Qt::NoBrush);
    p.drawRect(QRectF(startX, strip.top() - 1, endX - startX, strip.height() + 2));
    p.setPen(Qt::NoPen);
    p.setBrush(kHandle);
    for (const double x : {startX - handleWidth, endX}) {
        p.drawRoundedRect(QRectF(x, strip.top() - 3, handleWidth, strip.height() + 6), 3, 3);
    }
    p.setBrush(QColor(80, 60, 0));
    for (const double x : {startX - handleWidth / 2.0, endX + handleWidth / 2.0}) {
        p.drawRect(QRectF(x - 0.75, strip.center().y() - 7, 1.5, 14));
    }
    if (m_playhead >= 0 && m_playhead < m_timeline->frameCount()) {
        const double x = xOfTime(starts()[m_playhead]);
        p.setBrush(Qt::white);
        p.drawRect(QRectF(x - 1, strip.top(), 2, strip.height()));
    }
}

void TrimTimelineView::mousePressEvent(QMouseEvent* event)
{
    if (!m_timeline || event->button() != Qt::LeftButton) {
        return;
    }
    // The nearer handle follows the pointer.
    const double x = event->position().x();
    const double toStart = std::abs(x - (handleX(Handle::start) - handleWidth / 2.0));
    const double toEnd = std::abs(x - (handleX(Handle::end) + handleWidth / 2.0));
    m_dragging = toStart <= toEnd ? Handle::start : Handle::end;
    mouseMoveEvent(event);
}

void TrimTimelineView::mouseMoveEvent(QMouseEvent* event)
{
    if (!m_dragging || !m_timeline) {
        return;
    }
    const int boundary = boundaryAt(event->position().x());
    FrameSpan span = m_span;
    if (*m_dragging == Handle::start) {
        span.first = std::clamp(boundary, 0, span.end - 1);
    } else {
        span.end = std::clamp(boundary, span.first + 1, m_timeline->frameCount());
    }
    if (span != m_span) {
        m_span = span;
        update();
        if (onHandleMoved) {
            onHandleMoved(*m_dragging);
        }
    }
}

void TrimTimelineView::mouseReleaseEvent(QMouseEvent*)
{
    m_dragging.reset();
}

} // namespace vantalo
