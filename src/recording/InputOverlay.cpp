#include "InputOverlay.h"

#include <QPainter>
#include <QPainterPath>

#include <algorithm>

namespace vantalo {

namespace {
using namespace std::chrono_literals;
constexpr auto kRingTime = 300ms;
constexpr auto kLabelTime = 1000ms;
} // namespace

bool keyShown(const InputEvent& event, KeysShown keys)
{
    if (keys == KeysShown::all) {
        return true;
    }
    if (keys == KeysShown::none) {
        return false;
    }
    return event.special || std::ranges::any_of(event.modifiers, [](const QString& modifier) {
               return modifier != QStringLiteral("Shift");
           });
}

QString keyLabel(const InputEvent& event)
{
    QStringList parts = event.modifiers;
    const bool shortcut =
        std::ranges::any_of(parts, [](const QString& m) { return m != QStringLiteral("Shift"); });
    if (!event.special && !shortcut) {
        parts.removeAll(QStringLiteral("Shift")); // the key's own name already says it ("P")
    }
    QString key = event.key;
    if (shortcut && key.size() == 1) {
        key = key.toUpper(); // Ctrl + P, as menus write it
    }
    parts << key;
    return parts.join(QStringLiteral(" + "));
}

void InputEventLog::add(const InputEvent& event)
{
    const std::lock_guard lock(m_mutex);
    // Older than any label or ring can show: gone.
    std::erase_if(m_events, [&](const InputEvent& kept) { return event.at - kept.at > 5s; });
    m_events.push_back(event);
}

std::vector<InputEvent> InputEventLog::recent(InputEvent::Clock::time_point until) const
{
    const std::lock_guard lock(m_mutex);
    std::vector<InputEvent> events;
    for (const InputEvent& event : m_events) {
        if (event.at <= until && until - event.at <= 5s) {
            events.push_back(event);
        }
    }
    return events;
}

void drawInput(QImage& image, const QRect& nativeRect, double pointPixels,
               const std::vector<InputEvent>& events, InputEvent::Clock::time_point at, InputShown shown)
{
    if (events.empty() || nativeRect.isEmpty()) {
        return;
    }
    QPainter p(&image);
    p.setRenderHint(QPainter::Antialiasing);
    const double sx = double(image.width()) / nativeRect.width();
    const double sy = double(image.height()) / nativeRect.height();

    if (shown.clicks) {
        for (const InputEvent& event : events) {
            const auto age = at - event.at;
            if (event.kind != InputEvent::Kind::click || age >= kRingTime) {
                continue;
            }
            const double t = std::chrono::duration<double>(age) / kRingTime;
            const QPointF centre((event.position.x() - nativeRect.x() + 0.5) * sx,
                                 (event.position.y() - nativeRect.y() + 0.5) * sy);
            const QColor colour = event.button == 3   ? QColor(255, 59, 48)
                                  : event.button == 2 ? QColor(52, 199, 89)
                                                      : QColor(10, 132, 255);
            const double radius = (10 + 18 * t) * pointPixels;
            QColor fill = colour;
            fill.setAlphaF(float(0.35 * (1 - t)));
            QColor line = colour;
            line.setAlphaF(float(1 - 0.7 * t));
            p.setPen(QPen(line, 3 * pointPixels));
            p.setBrush(fill);
            p.drawEllipse(centre, radius, radius);
        }
    }

    if (shown.keys != KeysShown::none) {
        // The latest key shown, with how many times in a row it came, each within a second of
        // the one before.
        QString label;
        int repeats = 0;
        InputEvent::Clock::time_point last{};
        for (const InputEvent& event : events) {
            if (event.kind != InputEvent::Kind::key || !keyShown(event, shown.keys)) {
                continue;
            }
            const QString text = keyLabel(event);
            if (shown.hiddenKeys.contains(text)) {
                continue;
            }
            repeats = text == label && event.at - last <= kLabelTime ? repeats + 1 : 1;
            label = text;
            last = event.at;
        }
        if (!label.isEmpty() && at - last <= kLabelTime) {
            if (repeats > 1) {
                label += QStringLiteral(" \u00D7%1").arg(repeats);
            }
            QFont font;
            font.setPixelSize(qRound(18 * pointPixels));
            font.setWeight(QFont::DemiBold);
            p.setFont(font);
            const QFontMetricsF metrics(font);
            const double padX = 14 * pointPixels;
            const double padY = 8 * pointPixels;
            QSizeF box(metrics.horizontalAdvance(label) + 2 * padX, metrics.height() + 2 * padY);
            box.setWidth(std::min(box.width(), image.width() - 8 * pointPixels));
            const QRectF rect(
                QPointF((image.width() - box.width()) / 2, image.height() - box.height() - 16 * pointPixels),
                box);
            p.setPen(Qt::NoPen);
            p.setBrush(QColor(20, 20, 22, 215));
            p.drawRoundedRect(rect, 10 * pointPixels, 10 * pointPixels);
            p.setPen(Qt::white);
            p.drawText(rect, Qt::AlignCenter, label);
        }
    }
}

} // namespace vantalo
