#pragma once

#include "common/Symbols.h"

#include <QAbstractButton>
#include <QColor>
#include <QPointer>

class QVariantAnimation;

namespace vantalo {

// One of the three action buttons: a symbol above a short label, both in the button's tint.
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

private:
    Symbol m_symbol;
    QColor m_tint;
    double m_pressed = 0.0;
    QPointer<QVariantAnimation> m_animation;
};

} // namespace vantalo
