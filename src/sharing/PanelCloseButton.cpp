#include "PanelCloseButton.h"

#include "PanelStyle.h"
#include "common/Symbols.h"

#include <QPainter>

namespace vantalo {

using namespace panel;

PanelCloseButton::PanelCloseButton(QWidget* parent) : QAbstractButton(parent)
{
    setFixedSize(22, 22);
    setFocusPolicy(Qt::NoFocus);
    setAccessibleName(QStringLiteral("Close"));
}

void PanelCloseButton::enterEvent(QEnterEvent*)
{
    animateValue(this, m_animation, m_hover, 1.0, 120);
}

void PanelCloseButton::leaveEvent(QEvent*)
{
    animateValue(this, m_animation, m_hover, 0.0, 120);
}

void PanelCloseButton::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(Qt::NoPen);
    p.setBrush(white(0.10 + 0.12 * m_hover));
    p.drawEllipse(QRectF(rect()));
    const QRectF mark(QPointF(0, 0), QSizeF(8.5, 8.5));
    paintSymbol(p, Symbol::xmark, mark.translated(QRectF(rect()).center() - mark.center()),
                white(0.55 + 0.40 * m_hover), 1.7);
}

} // namespace vantalo
