#pragma once

#include "common/Symbols.h"

#include <QAbstractButton>
#include <QColor>
#include <QPointer>

class QVariantAnimation;

namespace vantalo {

// One of the panel's action buttons: a symbol above a short label, both in the button's tint,
// on a faint plate while the pointer is over it and a brighter one while it is pressed.
class PanelActionButton : public QAbstractButton
{
    Q_OBJECT
public:
    PanelActionButton(Symbol symbol, const QString& label, QColor tint, QWidget* parent = nullptr);
    void setLook(Symbol symbol, const QString& label, QColor tint);
    QColor tint() const { return m_tint; }
    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;
    void enterEvent(QEnterEvent* event) override;
    void leaveEvent(QEvent* event) override;

private:
    Symbol m_symbol;
    QColor m_tint;
    double m_pressed = 0.0;
    double m_hovered = 0.0;
    QPointer<QVariantAnimation> m_animation;
    QPointer<QVariantAnimation> m_hoverAnimation;
};

} // namespace vantalo
