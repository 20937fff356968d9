#pragma once

#include "PanelStyle.h"
#include "PreviewPanelState.h"

#include <QPainter>
#include <QVariantAnimation>
#include <QWidget>

#include <algorithm>
#include <memory>

namespace vantalo {

// In the place of the panel's actions: an upload (a spinner, or a bar once the size is known) or a fit (a
// bar) with its text, or a notice.
class PanelRowIndicator : public QWidget
{
public:
    PanelRowIndicator(std::shared_ptr<PreviewPanelState> state, QWidget* parent)
        : QWidget(parent), m_state(std::move(state))
    {
        m_spin.setStartValue(0.0);
        m_spin.setEndValue(360.0);
        m_spin.setDuration(900);
        m_spin.setLoopCount(-1);
        connect(&m_spin, &QVariantAnimation::valueChanged, this, [this] { update(); });
    }

    QString text() const
    {
        switch (m_state->row()) {
        case PreviewPanelState::Row::working:
            return QStringLiteral("%1\u2026 %2%")
                .arg(m_state->work())
                .arg(int(m_state->workProgress() * 100));
        case PreviewPanelState::Row::notice:
            return m_state->notice();
        default:
            break;
        }
        const std::optional<int> percent = m_state->progressPercent();
        return percent ? QStringLiteral("Uploading\u2026 %1%").arg(*percent)
                       : QStringLiteral("Uploading\u2026");
    }

protected:
    void showEvent(QShowEvent*) override { m_spin.start(); }
    void hideEvent(QHideEvent*) override { m_spin.stop(); }
    void paintEvent(QPaintEvent*) override
    {
        QPainter p(this);
        p.setRenderHint(QPainter::Antialiasing);
        const QFont f = panel::panelFont(11, QFont::Normal);
        p.setFont(f);
        QString label = text();
        const PreviewPanelState::Row row = m_state->row();
        if (row == PreviewPanelState::Row::notice) {
            p.setPen(panel::white(0.75));
            p.drawText(QRectF(rect()).adjusted(12, 0, -12, 0), Qt::AlignCenter | Qt::TextWordWrap, label);
            return;
        }
        std::optional<double> fraction;
        if (row == PreviewPanelState::Row::working) {
            fraction = m_state->workProgress();
        } else if (const std::optional<int> percent = m_state->progressPercent()) {
            fraction = *percent / 100.0;
        }
        // A long text takes from the bar, then loses its middle: the count at its end stays.
        const QFontMetricsF metrics(f);
        const double room = width() - 8.0;
        QSizeF indicator = fraction ? QSizeF(56, 4) : QSizeF(14, 14);
        if (fraction) {
            indicator.setWidth(std::clamp(room - 8 - metrics.horizontalAdvance(label), 28.0, 56.0));
        }
        label = metrics.elidedText(label, Qt::ElideMiddle, room - indicator.width() - 8);
        const double textWidth = metrics.horizontalAdvance(label);
        const double total = indicator.width() + 8 + textWidth;
        const double x = std::max(4.0, (width() - total) / 2);
        const QRectF box(QPointF(x, (height() - indicator.height()) / 2), indicator);
        if (fraction) {
            p.setPen(Qt::NoPen);
            p.setBrush(panel::white(0.15));
            p.drawRoundedRect(box, 2, 2);
            p.setBrush(panel::white(0.7));
            p.drawRoundedRect(
                QRectF(box.topLeft(), QSizeF(box.width() * std::clamp(*fraction, 0.0, 1.0), box.height())), 2,
                2);
        } else {
            p.setPen(QPen(panel::white(0.6), 1.8, Qt::SolidLine, Qt::RoundCap));
            p.drawArc(box.adjusted(1, 1, -1, -1), int(-m_spin.currentValue().toDouble() * 16), 270 * 16);
        }
        p.setPen(panel::white(0.5));
        p.drawText(QRectF(x + indicator.width() + 8, 0, textWidth + 2, height()), Qt::AlignVCenter, label);
    }

private:
    std::shared_ptr<PreviewPanelState> m_state;
    QVariantAnimation m_spin;
};

} // namespace vantalo
