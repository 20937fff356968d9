#pragma once

#include <QAbstractButton>
#include <QPointer>

class QVariantAnimation;

namespace vantalo {

// The round close button at the panel's top-right corner; brightens while hovered.
class PanelCloseButton : public QAbstractButton
{
    Q_OBJECT
public:
    explicit PanelCloseButton(QWidget* parent = nullptr);
    QSize sizeHint() const override { return {22, 22}; }
    double hoverProgress() const { return m_hover; }

protected:
    void paintEvent(QPaintEvent* event) override;
    void enterEvent(QEnterEvent* event) override;
    void leaveEvent(QEvent* event) override;

private:
    double m_hover = 0.0;
    QPointer<QVariantAnimation> m_animation;
};

} // namespace vantalo
