#include "FeedbackMessageWindow.h"

#include "PanelStyle.h"
#include "common/FloatingWindow.h"

#include <QPainter>
#include <QPropertyAnimation>
#include <QTimer>

namespace vantalo {

using namespace panel;

FeedbackMessageWindow::FeedbackMessageWindow(const QString& message, bool compositing)
    : m_message(message), m_compositing(compositing)
{
    makeFloating(this, FloatingInput::clickThrough, FloatingPlacement::managed);
    setAttribute(Qt::WA_TranslucentBackground);
    setAttribute(Qt::WA_DeleteOnClose);
    const int textWidth =
        int(std::ceil(QFontMetricsF(panelFont(13, QFont::DemiBold)).horizontalAdvance(message)));
    setFixedSize(std::max(minimumMessageWidth, textWidth + 24), messageHeight);
    if (!compositing) {
        setMask(QRegion(roundedPath(QRectF(rect()), 10).toFillPolygon().toPolygon()));
    }
}

void FeedbackMessageWindow::showCentredOn(const QPoint& centre)
{
    move(centre.x() - width() / 2, centre.y() - messageHeight / 2);
    if (!m_compositing) {
        show();
        QTimer::singleShot(1500, this, &QWidget::close);
        return;
    }
    setWindowOpacity(0.0);
    show();
    auto* fadeIn = new QPropertyAnimation(this, "windowOpacity", this);
    fadeIn->setDuration(150);
    fadeIn->setEndValue(1.0);
    fadeIn->start(QAbstractAnimation::DeleteWhenStopped);
    QTimer::singleShot(1200, this, [this] {
        auto* fadeOut = new QPropertyAnimation(this, "windowOpacity", this);
        fadeOut->setDuration(300);
        fadeOut->setEndValue(0.0);
        connect(fadeOut, &QPropertyAnimation::finished, this, &QWidget::close);
        fadeOut->start(QAbstractAnimation::DeleteWhenStopped);
    });
}

void FeedbackMessageWindow::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(Qt::NoPen);
    p.setBrush(QColor(40, 40, 44, m_compositing ? 235 : 255));
    p.drawRoundedRect(QRectF(rect()), 10, 10);
    p.setFont(panelFont(13, QFont::DemiBold));
    p.setPen(kWhite);
    p.drawText(QRectF(0, 6, width(), 20), Qt::AlignCenter, m_message);
}

} // namespace vantalo
