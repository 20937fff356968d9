#include "RecordingToolbarPanel.h"

#include "RecordingLook.h"
#include "common/FloatingWindow.h"
#include "common/RegionGeometry.h"

#include <QFontDatabase>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>

namespace vantalo {

namespace {
constexpr double kPadding = geometry::toolbarPadding;
constexpr double kBarHeight = geometry::toolbarBarHeight;
constexpr double kButtonWidth = 44;
constexpr double kSeparatorWidth = 1;
const QColor kRed = QColor::fromRgbF(1.0f, 0.25f, 0.25f);

QFont timeFont()
{
    QFont font = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    font.setPixelSize(13);
    font.setWeight(QFont::DemiBold);
    return font;
}
} // namespace

RecordingToolbarPanel::RecordingToolbarPanel(RecordingToolbarState& state, bool compositing,
                                             InputRegionSetter inputRegion)
    : m_state(&state), m_compositing(compositing), m_inputRegion(std::move(inputRegion))
{
    makeFloating(this, FloatingInput::takesClicks, FloatingPlacement::exact);
    // Named for window lists, screen readers and scripted runs.
    setWindowTitle(QStringLiteral("Vantalo Recording Toolbar"));
    setAttribute(Qt::WA_DeleteOnClose);
    setMouseTracking(true);
    setAttribute(Qt::WA_AlwaysShowToolTips); // the toolbar is never the active window
    if (compositing) {
        setAttribute(Qt::WA_TranslucentBackground);
    }
    connect(&state, &RecordingToolbarState::changed, this, &RecordingToolbarPanel::relayout);
    relayout();
}

double RecordingToolbarPanel::labelWidth() const
{
    const double text = QFontMetricsF(timeFont()).horizontalAdvance(m_state ? m_state->label() : QString());
    return std::max(46.0, text) + 24; // at least 46 points, 12 points of padding each side
}

bool RecordingToolbarPanel::recording() const
{
    return m_state && m_state->isRecording();
}

QSize RecordingToolbarPanel::contentSize() const
{
    const double bar = recording() ? 3 * kButtonWidth + 3 * kSeparatorWidth + labelWidth() : kButtonWidth;
    return QSize(qCeil(bar + 2 * kPadding), qCeil(kBarHeight + 2 * kPadding));
}

void RecordingToolbarPanel::setKeepOut(const QRect& region)
{
    m_keepOut = region;
    relayout();
}

void RecordingToolbarPanel::relayout()
{
    const QSize wanted = contentSize();
    if (place) {
        const QRect frame = place(wanted);
        if (frame != geometry()) {
            setGeometry(frame);
        }
    } else if (wanted != size()) {
        resize(wanted);
    }
    // Only the capsule takes clicks: the padding around it lies over the region's handles, and
    // while recording over whatever is below. Without a compositor to blend the corners the window
    // is cut to the capsule; with one the padding shows the shadow but lets clicks through.
    QPainterPath capsule;
    capsule.addRoundedRect(QRectF(kPadding, kPadding, wanted.width() - 2 * kPadding, kBarHeight),
                           kBarHeight / 2, kBarHeight / 2);
    const QRegion capsuleRegion(capsule.toFillPolygon().toPolygon());
    // The panel's padding reaches past the region's edge (the bar stands 14 points off it, the
    // padding is 20): the shadow stops at that edge, or it would be in the recording.
    const QRect keepOut = m_keepOut.translated(-geometry().topLeft());
    if (!m_compositing) {
        setMask(capsuleRegion);
    } else {
        setMask(QRegion(0, 0, wanted.width(), wanted.height()).subtracted(keepOut));
        if (m_inputRegion) {
            winId(); // the native window must exist to be shaped
            m_inputRegion(windowHandle(), capsuleRegion);
        }
    }
    // A toolbar that had to sit inside the region (a region as large as the display) would be
    // recorded: it stays away until the recording ends, which the shortcut and the tray menu do.
    if (recording() && capsuleRegion.intersects(keepOut)) {
        hide();
    }
    update();
}

QRectF RecordingToolbarPanel::buttonRect(Button button) const
{
    if (!recording()) {
        return button == Button::recordStop ? QRectF(kPadding, kPadding, kButtonWidth, kBarHeight) : QRectF();
    }
    double x = kPadding;
    for (Button each : {Button::restart, Button::pauseResume, Button::recordStop}) {
        if (each == button) {
            return {x, kPadding, kButtonWidth, kBarHeight};
        }
        x += kButtonWidth + kSeparatorWidth;
    }
    return {};
}

RecordingToolbarPanel::Button RecordingToolbarPanel::buttonAt(const QPointF& p) const
{
    for (Button button : {Button::restart, Button::pauseResume, Button::recordStop}) {
        if (buttonRect(button).contains(p)) {
            return button;
        }
    }
    return Button::none;
}

void RecordingToolbarPanel::mouseMoveEvent(QMouseEvent* event)
{
    const Button now = buttonAt(event->position());
    if (now != m_hovered) {
        m_hovered = now;
        setCursor(now == Button::none ? Qt::ArrowCursor : Qt::PointingHandCursor);
        setToolTip(toolTipFor(now));
        update();
    }
}

QString RecordingToolbarPanel::toolTipFor(Button button) const
{
    switch (button) {
    case Button::recordStop:
        return recording() ? QStringLiteral("Stop recording") : QStringLiteral("Start recording (Return)");
    case Button::pauseResume:
        return m_state && m_state->isPaused() ? QStringLiteral("Resume recording")
                                              : QStringLiteral("Pause recording");
    case Button::restart:
        return QStringLiteral("Start over");
    case Button::none:
        break;
    }
    return {};
}

void RecordingToolbarPanel::leaveEvent(QEvent*)
{
    m_hovered = Button::none;
    unsetCursor();
    update();
}

void RecordingToolbarPanel::mousePressEvent(QMouseEvent* event)
{
    const Button pressed = buttonAt(event->position());
    if (pressed != Button::none && onPressed) {
        onPressed(pressed);
    }
}

void RecordingToolbarPanel::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const QRectF bar(kPadding, kPadding, width() - 2 * kPadding, kBarHeight);
    const double radius = kBarHeight / 2;
    if (m_compositing) {
        // A soft shadow below the capsule.
        for (int i = 12; i > 0; i -= 2) {
            p.setPen(Qt::NoPen);
            p.setBrush(QColor(0, 0, 0, 10));
            p.drawRoundedRect(bar.translated(0, 5).adjusted(-i, -i, i, i), radius + i, radius + i);
        }
    }
    p.setPen(QPen(QColor(255, 255, 255, qRound(0.12 * 255)), 0.5));
    p.setBrush(QColor(28, 28, 30, m_compositing ? 235 : 255));
    p.drawRoundedRect(bar.adjusted(0.25, 0.25, -0.25, -0.25), radius, radius);

    const auto highlight = [&](Button button) {
        if (m_hovered == button) {
            p.setPen(Qt::NoPen);
            p.setBrush(QColor(255, 255, 255, qRound(0.1 * 255)));
            p.drawRect(buttonRect(button).intersected(bar));
        }
    };
    const QColor dim(255, 255, 255, qRound(0.85 * 255));
    const QColor separator(255, 255, 255, qRound(0.12 * 255));

    if (recording()) {
        const QRectF restart = buttonRect(Button::restart);
        highlight(Button::restart);
        // A counter-clockwise arrow.
        const QRectF arc(restart.center() - QPointF(6.5, 6.5), QSizeF(13, 13));
        p.setPen(QPen(dim, 2, Qt::SolidLine, Qt::RoundCap));
        p.setBrush(Qt::NoBrush);
        p.drawArc(arc, 100 * 16, 280 * 16);
        const QPointF tip = arc.center() + QPointF(-1.5, -6.5);
        QPainterPath head;
        head.moveTo(tip + QPointF(-4, -3));
        head.lineTo(tip + QPointF(2, 0));
        head.lineTo(tip + QPointF(-4, 3.5));
        p.setPen(Qt::NoPen);
        p.setBrush(dim);
        p.drawPath(head);
        p.fillRect(QRectF(restart.right(), bar.center().y() - 9, kSeparatorWidth, 18), separator);

        // Pause: two bars; Resume: the record dot, smaller than Start's.
        const QRectF pause = buttonRect(Button::pauseResume);
        highlight(Button::pauseResume);
        p.setPen(Qt::NoPen);
        if (m_state && m_state->isPaused()) {
            p.setBrush(kRed);
            p.drawEllipse(pause.center(), 6, 6);
        } else {
            p.setBrush(dim);
            p.drawRoundedRect(QRectF(pause.center() + QPointF(-5.5, -7), QSizeF(4, 14)), 1, 1);
            p.drawRoundedRect(QRectF(pause.center() + QPointF(1.5, -7), QSizeF(4, 14)), 1, 1);
        }
        p.fillRect(QRectF(pause.right(), bar.center().y() - 9, kSeparatorWidth, 18), separator);
    }

    const QRectF main = buttonRect(Button::recordStop);
    highlight(Button::recordStop);
    p.setPen(Qt::NoPen);
    p.setBrush(kRed);
    if (recording()) {
        p.drawRoundedRect(QRectF(main.center() - QPointF(6.5, 6.5), QSizeF(13, 13)), 3, 3);
        p.fillRect(QRectF(main.right(), bar.center().y() - 9, kSeparatorWidth, 18), separator);
        // The last seconds before the limit in the stop square's red.
        p.setPen(m_state && m_state->isPaused()       ? pausedAmber()
                 : m_state && m_state->nearTheLimit() ? kRed
                                                      : dim);
        p.setFont(timeFont());
        const QRectF label(main.right() + kSeparatorWidth, bar.top(), labelWidth(), kBarHeight);
        p.drawText(label, Qt::AlignCenter, m_state ? m_state->label() : QString());
    } else {
        p.drawEllipse(main.center(), 7, 7);
    }
}

} // namespace vantalo
