#pragma once

#include "PanelStyle.h"

#include <QPainter>
#include <QWidget>

namespace vantalo {

// A faint line between parts of the panel: across it (under the picture) or between two actions.
class PanelRule : public QWidget
{
public:
    PanelRule(Qt::Orientation orientation, QWidget* parent) : QWidget(parent), m_orientation(orientation)
    {
        if (orientation == Qt::Horizontal) {
            setFixedHeight(1);
        } else {
            setFixedWidth(1);
        }
    }

protected:
    void paintEvent(QPaintEvent*) override
    {
        QPainter p(this);
        const QRectF line =
            m_orientation == Qt::Horizontal ? QRectF(rect()) : QRectF(0, (height() - 28) / 2.0, 1, 28);
        p.fillRect(line, panel::white(0.08));
    }

private:
    Qt::Orientation m_orientation;
};

} // namespace vantalo
