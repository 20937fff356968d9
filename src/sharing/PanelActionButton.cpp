#include "PanelActionButton.h"

#include "PanelStyle.h"

#include <QPainter>

namespace vantalo {

using namespace panel;

PanelActionButton::PanelActionButton(Symbol symbol, const QString& label, QColor tint, QWidget* parent)
    : QAbstractButton(parent), m_symbol(symbol), m_tint(tint)
{
    setText(label);
    setFocusPolicy(Qt::NoFocus);
    setCursor(Qt::PointingHandCursor);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
    connect(this, &QAbstractButton::pressed, this,
            [this] { animateValue(this, m_animation, m_pressed, 1.0, 100); });
    connect(this, &QAbstractButton::released, this,
            [this] { animateValue(this, m_animation, m_pressed, 0.0, 100); });
}

void PanelActionButton::setLook(Symbol symbol, const QString& label, QColor tint)
{
    m_symbol = symbol;
    m_tint = tint;
    setText(label);
    update();
}

void PanelActionButton::enterEvent(QEnterEvent*)
{
    animateValue(this, m_hoverAnimation, m_hovered, 1.0, 120);
}

void PanelActionButton::leaveEvent(QEvent*)
{
    animateValue(this, m_hoverAnimation, m_hovered, 0.0, 160);
}

QSize PanelActionButton::sizeHint() const
{
    return {72, 44};
}

void PanelActionButton::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const QFont labelFont = panelFont(9.5, QFont::Medium);
    const double textHeight = QFontMetricsF(labelFont).height();
    const double contentHeight = 14 + 4 + textHeight;
    const double top = (height() - contentHeight) / 2;
    if (m_pressed > 0 || m_hovered > 0) {
        p.setPen(Qt::NoPen);
        p.setBrush(white(0.06 * m_hovered + 0.1 * m_pressed));
        p.drawRoundedRect(QRectF(rect()).adjusted(4, 4, -4, -4), 6, 6);
    }
    paintSymbol(p, m_symbol, QRectF(width() / 2.0 - 8, top - 1, 16, 16), m_tint, 1.5);
    p.setFont(labelFont);
    p.setPen(m_tint);
    p.drawText(QRectF(0, top + 18, width(), textHeight), Qt::AlignHCenter | Qt::AlignTop, text());
}

} // namespace vantalo
