#include "GifImageView.h"

#include "PanelStyle.h"
#include "common/GifMovie.h"
#include "common/GifTransfer.h"

#include <QMouseEvent>
#include <QPainter>

namespace vantalo {

using namespace panel;

GifImageView::GifImageView(const QString& path, QSize maximumSize, QWidget* parent)
    : QWidget(parent), m_path(path)
{
    if (std::optional<FittedMovie> fitted = openFittedMovie(path, maximumSize)) {
        m_fitted = fitted->size;
        m_movie = std::move(fitted->movie);
        connect(m_movie.get(), &QMovie::frameChanged, this, [this] { update(); });
    }
    setCursor(Qt::PointingHandCursor);
}

void GifImageView::setBadge(const QString& text)
{
    m_badge = text;
    update();
}

void GifImageView::showEvent(QShowEvent*)
{
    if (m_movie && m_movie->frameCount() != 1) {
        m_movie->start();
    }
}

void GifImageView::hideEvent(QHideEvent*)
{
    if (m_movie) {
        m_movie->setPaused(true);
    }
}

void GifImageView::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    p.setRenderHint(QPainter::SmoothPixmapTransform);
    p.setRenderHint(QPainter::Antialiasing);
    // The picture keeps to the panel's rounded corners.
    const QPointF offset = mapTo(window(), QPoint());
    p.setClipPath(roundedPath(QRectF(window()->rect()).translated(-offset), cornerRadius));
    if (m_movie) {
        const QImage frame = m_movie->currentImage();
        QRect target(QPoint(), m_fitted);
        target.moveCenter(rect().center());
        p.drawImage(target, frame);
    }
    if (m_badge.isEmpty()) {
        return;
    }
    QFont f = panelFont(10, QFont::DemiBold);
    f.setStyleHint(QFont::SansSerif);
    p.setFont(f);
    const QSizeF text = QFontMetricsF(f).size(Qt::TextSingleLine, m_badge);
    const QSizeF capsule(text.width() + 14, text.height() + 6);
    const QRectF box(QPointF(width() - 8 - capsule.width(), height() - 8 - capsule.height()), capsule);
    p.setPen(Qt::NoPen);
    p.setBrush(QColor(0, 0, 0, 140));
    p.drawRoundedRect(box, capsule.height() / 2, capsule.height() / 2);
    p.setPen(white(0.9));
    p.drawText(box, Qt::AlignCenter, m_badge);
}

void GifImageView::mousePressEvent(QMouseEvent* event)
{
    if (event->button() != Qt::LeftButton) {
        return;
    }
    m_pressed = true;
    m_pressGlobal = event->globalPosition().toPoint();
}

void GifImageView::mouseMoveEvent(QMouseEvent* event)
{
    // Past the threshold a press becomes a drag of the file, out of the panel.
    if (!m_pressed ||
        (event->globalPosition().toPoint() - m_pressGlobal).manhattanLength() <= dragThresholdPx) {
        return;
    }
    m_pressed = false;
    // A copy: the view may be gone when the drop is done.
    const auto dragging = onDragging;
    if (dragging) {
        dragging(true);
    }
    dragGifFile(m_path, m_movie ? m_movie->currentPixmap() : QPixmap());
    if (dragging) {
        dragging(false);
    }
}

void GifImageView::mouseReleaseEvent(QMouseEvent* event)
{
    const bool click = m_pressed && event->button() == Qt::LeftButton && rect().contains(event->pos());
    m_pressed = false;
    if (click && onClick) {
        onClick();
    }
}

} // namespace vantalo
