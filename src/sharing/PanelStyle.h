#pragma once

#include <QColor>
#include <QFont>
#include <QPainterPath>
#include <QPointer>
#include <QVariantAnimation>
#include <QWidget>

#include <cmath>

// The look the preview panel's widgets share: a dark translucent surface, white at several
// strengths, small system fonts, short eased animations.
namespace vantalo::panel {

inline constexpr double cornerRadius = 14;

inline const QColor kWhite(255, 255, 255);
inline const QColor kHudFill(30, 30, 32, 236);
inline const QColor kButtonTint(255, 255, 255, 191);
inline const QColor kGreen = QColor::fromRgbF(0.3f, 0.9f, 0.45f);
inline const QColor kRed = QColor::fromRgbF(1.0f, 0.42f, 0.42f);

inline QColor white(double opacity)
{
    QColor c = kWhite;
    c.setAlphaF(float(opacity));
    return c;
}

inline QFont panelFont(double pixelSize, QFont::Weight weight)
{
    QFont f;
    f.setPixelSize(int(std::lround(pixelSize)));
    f.setWeight(weight);
    return f;
}

// Eases `value` (a member of `owner`) to `to`, replacing the animation of it still running, and
// repaints `owner` at every step.
inline void animateValue(QWidget* owner, QPointer<QVariantAnimation>& running, double& value, double to,
                         int durationMs)
{
    if (running) {
        running->stop();
    }
    auto* animation = new QVariantAnimation(owner);
    animation->setStartValue(value);
    animation->setEndValue(to);
    animation->setDuration(durationMs);
    animation->setEasingCurve(QEasingCurve::InOutQuad);
    QObject::connect(animation, &QVariantAnimation::valueChanged, owner,
                     [owner, &value](const QVariant& step) {
                         value = step.toDouble();
                         owner->update();
                     });
    animation->start(QAbstractAnimation::DeleteWhenStopped);
    running = animation;
}

inline QPainterPath roundedPath(const QRectF& rect, double radius)
{
    QPainterPath path;
    path.addRoundedRect(rect, radius, radius);
    return path;
}

} // namespace vantalo::panel
