#include "OverlayWindow.h"

#include "common/RegionGeometry.h"

#include <QFontDatabase>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QPainter>

namespace vantalo {

DisplayInfo displayInfoFor(const QScreen* screen)
{
    const QScreen* primary = QGuiApplication::primaryScreen();
    return DisplayInfo{screen->name(), fromQtRect(QRectF(screen->geometry()), QRectF(primary->geometry()))};
}

OverlayWindow::OverlayWindow(QScreen* screen, const QImage& still, double dimAlpha)
    : QWidget(nullptr,
              Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint | Qt::X11BypassWindowManagerHint | Qt::Tool),
      m_screen(screen), m_display(displayInfoFor(screen)), m_still(still), m_dimAlpha(dimAlpha)
{
    setAttribute(Qt::WA_DeleteOnClose);
    setMouseTracking(true);
    setFocusPolicy(Qt::StrongFocus);
    setAttribute(m_still.isNull() ? Qt::WA_TranslucentBackground : Qt::WA_OpaquePaintEvent);
    setScreen(screen);
    setGeometry(screen->geometry());
}

QRectF OverlayWindow::toWidget(const QRectF& viewRect) const
{
    return toQtRect(viewRect, QRectF(rect()));
}

QPointF OverlayWindow::toView(const QPointF& widgetPoint) const
{
    return fromQtPoint(widgetPoint, QRectF(rect()));
}

QPointF OverlayWindow::pointerInView(const QPointF& widgetPoint) const
{
    return geometry::snappedToViewEdges(toView(widgetPoint), QSizeF(size()));
}

void OverlayWindow::paintDimmed(QPainter& painter, const QRectF& holeInView) const
{
    const QColor dim(0, 0, 0, qRound(m_dimAlpha * 255));
    const QRectF hole = holeInView.isEmpty() ? QRectF() : toWidget(holeInView);
    if (!m_still.isNull()) {
        painter.drawImage(rect(), m_still);
        painter.fillRect(rect(), dim);
        if (!hole.isEmpty()) {
            const QRectF source(hole.topLeft() * m_still.devicePixelRatio(),
                                hole.size() * m_still.devicePixelRatio());
            painter.drawImage(hole, m_still, source);
        }
        return;
    }
    painter.setCompositionMode(QPainter::CompositionMode_Source);
    painter.fillRect(rect(), dim);
    if (!hole.isEmpty()) {
        painter.fillRect(hole, Qt::transparent);
    }
    painter.setCompositionMode(QPainter::CompositionMode_SourceOver);
}

QRectF OverlayWindow::paintSizePill(QPainter& painter, const QRectF& region, int pixelSize,
                                    double backgroundAlpha,
                                    const std::function<QRectF(const QSizeF&)>& placeBox,
                                    const QString& label) const
{
    QFont font = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    font.setPixelSize(pixelSize);
    font.setWeight(QFont::Medium);
    painter.setFont(font);
    const QString text = label.isEmpty() ? geometry::sizeLabel(region) : label;
    const QRectF box = toWidget(placeBox(QFontMetricsF(font).size(Qt::TextSingleLine, text)));
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(0, 0, 0, qRound(backgroundAlpha * 255)));
    painter.drawRoundedRect(box, box.height() / 2, box.height() / 2);
    painter.setPen(Qt::white);
    painter.drawText(box, Qt::AlignCenter, text);
    return box;
}

void OverlayWindow::paintMessage(QPainter& painter, const QString& text) const
{
    QFont font = painter.font();
    font.setPixelSize(14);
    painter.setFont(font);
    const QSizeF textSize = QFontMetricsF(font).size(Qt::TextSingleLine, text);
    const QRectF box(QPointF((width() - textSize.width()) / 2 - 14, 24), textSize + QSizeF(28, 14));
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(0, 0, 0, 190));
    painter.drawRoundedRect(box, box.height() / 2, box.height() / 2);
    painter.setPen(Qt::white);
    painter.drawText(box, Qt::AlignCenter, text);
    painter.restore();
}

void OverlayWindow::keyPressEvent(QKeyEvent* event)
{
    // Escape cancels, Return goes on; other keys are swallowed.
    event->accept();
    if (event->key() == Qt::Key_Escape && onEscape) {
        onEscape();
    } else if ((event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter) && onReturn) {
        onReturn();
    }
}

} // namespace vantalo
