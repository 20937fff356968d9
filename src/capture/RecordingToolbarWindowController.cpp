#include "RecordingToolbarWindowController.h"

#include "common/FloatingWindow.h"
#include "common/Geometry.h"
#include "common/RegionGeometry.h"

#include <QFontDatabase>
#include <QGuiApplication>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QPropertyAnimation>
#include <QScreen>
#include <QVariantAnimation>

namespace vantalo {

namespace {
constexpr double kPadding = geometry::toolbarPadding;
constexpr double kBarHeight = 40;
constexpr double kButtonWidth = 44;
constexpr double kSeparatorWidth = 1;
const QColor kRed = QColor::fromRgbF(1.0f, 0.25f, 0.25f);

QRectF primaryGeometry()
{
    return QRectF(QGuiApplication::primaryScreen()->geometry());
}

Qt::WindowFlags floatingFlags()
{
    return floatingWindowFlags() | Qt::X11BypassWindowManagerHint;
}

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
    : QWidget(nullptr, floatingFlags()), m_state(&state), m_compositing(compositing),
      m_inputRegion(std::move(inputRegion))
{
    // Named for window lists, screen readers and scripted runs.
    setWindowTitle(QStringLiteral("Vantalo Recording Toolbar"));
    setAttribute(Qt::WA_ShowWithoutActivating);
    setAttribute(Qt::WA_DeleteOnClose);
    setMouseTracking(true);
    setFocusPolicy(Qt::NoFocus);
    if (compositing) {
        setAttribute(Qt::WA_TranslucentBackground);
    }
    connect(&state, &RecordingToolbarState::changed, this, &RecordingToolbarPanel::relayout);
    relayout();
}

double RecordingToolbarPanel::labelWidth() const
{
    const double text = QFontMetricsF(timeFont())
                            .horizontalAdvance(RecordingToolbarState::elapsedLabel(
                                m_state ? m_state->elapsedSeconds() : 0.0));
    return std::max(46.0, text) + 24; // at least 46 points, 12 points of padding each side
}

bool RecordingToolbarPanel::recording() const
{
    return m_state && m_state->isRecording();
}

QSize RecordingToolbarPanel::contentSize() const
{
    const double bar = recording() ? 2 * kButtonWidth + 2 * kSeparatorWidth + labelWidth() : kButtonWidth;
    return QSize(qCeil(bar + 2 * kPadding), qCeil(kBarHeight + 2 * kPadding));
}

void RecordingToolbarPanel::relayout()
{
    const QSize wanted = contentSize();
    if (wanted != size()) {
        // Grows and shrinks about its centre, as the bar stays over the region.
        const QPoint centre = geometry().center();
        resize(wanted);
        if (isVisible()) {
            move(centre.x() - wanted.width() / 2, y());
        }
    }
    // Only the capsule takes clicks: the padding around it lies over the region's top handle, and
    // while recording over whatever is below. Without a compositor to blend the corners the window
    // is cut to the capsule; with one the padding shows the shadow but lets clicks through.
    QPainterPath capsule;
    capsule.addRoundedRect(QRectF(kPadding, kPadding, wanted.width() - 2 * kPadding, kBarHeight),
                           kBarHeight / 2, kBarHeight / 2);
    const QRegion capsuleRegion(capsule.toFillPolygon().toPolygon());
    if (!m_compositing) {
        setMask(capsuleRegion);
    } else {
        // The panel reaches below the region's top edge (the bar stands 14 points above it, the
        // padding is 20): the shadow stops at that edge, or it would be in the recording.
        setMask(QRegion(0, 0, wanted.width(), qFloor(kPadding + kBarHeight + geometry::toolbarGap)));
        if (m_inputRegion) {
            winId(); // the native window must exist to be shaped
            m_inputRegion(windowHandle(), capsuleRegion);
        }
    }
    update();
}

QRectF RecordingToolbarPanel::buttonRect(Button button) const
{
    double x = kPadding;
    if (recording()) {
        if (button == Button::restart) {
            return {x, kPadding, kButtonWidth, kBarHeight};
        }
        x += kButtonWidth + kSeparatorWidth;
    } else if (button == Button::restart) {
        return {};
    }
    return button == Button::recordStop ? QRectF(x, kPadding, kButtonWidth, kBarHeight) : QRectF();
}

RecordingToolbarPanel::Button RecordingToolbarPanel::buttonAt(const QPointF& p) const
{
    for (Button button : {Button::restart, Button::recordStop}) {
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
        update();
    }
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
    }

    const QRectF main = buttonRect(Button::recordStop);
    highlight(Button::recordStop);
    p.setPen(Qt::NoPen);
    p.setBrush(kRed);
    if (recording()) {
        p.drawRoundedRect(QRectF(main.center() - QPointF(6.5, 6.5), QSizeF(13, 13)), 3, 3);
        p.fillRect(QRectF(main.right(), bar.center().y() - 9, kSeparatorWidth, 18), separator);
        p.setPen(dim);
        p.setFont(timeFont());
        const QRectF label(main.right() + kSeparatorWidth, bar.top(), labelWidth(), kBarHeight);
        p.drawText(label, Qt::AlignCenter,
                   RecordingToolbarState::elapsedLabel(m_state ? m_state->elapsedSeconds() : 0.0));
    } else {
        p.drawEllipse(main.center(), 7, 7);
    }
}

RecordingToolbarWindowController::RecordingToolbarWindowController(std::function<bool()> compositing,
                                                                   InputRegionSetter inputRegion)
    : m_compositing(std::move(compositing)), m_inputRegion(std::move(inputRegion))
{
}

RecordingToolbarWindowController::~RecordingToolbarWindowController()
{
    delete m_panel.data();
    for (const QPointer<RecordingToolbarPanel>& fading : std::as_const(m_fading)) {
        delete fading.data();
    }
}

void RecordingToolbarWindowController::show(const QRectF& region)
{
    hide();
    const bool compositing = m_compositing && m_compositing();
    auto* panel = new RecordingToolbarPanel(m_state, compositing, m_inputRegion);
    panel->onPressed = [this](RecordingToolbarPanel::Button button) {
        // The callbacks in force at the moment of the press.
        if (button == RecordingToolbarPanel::Button::restart) {
            if (onRestart) {
                onRestart();
            }
        } else if (m_state.isRecording()) {
            if (onStop) {
                onStop();
            }
        } else if (onStart) {
            onStart();
        }
    };
    const QRectF frame = toQtRect(geometry::toolbarFrame(region, panel->contentSize()), primaryGeometry());
    panel->setGeometry(frame.toRect());
    if (compositing) {
        panel->setWindowOpacity(0.0);
    }
    panel->show();
    if (compositing) {
        auto* fade = new QPropertyAnimation(panel, "windowOpacity", panel);
        fade->setDuration(200);
        fade->setEasingCurve(QEasingCurve::OutCubic);
        fade->setEndValue(1.0);
        fade->start(QAbstractAnimation::DeleteWhenStopped);
    }
    m_panel = panel;
}

void RecordingToolbarWindowController::hide()
{
    if (!m_panel) {
        return;
    }
    QPointer<RecordingToolbarPanel> panel = m_panel;
    m_panel = nullptr;
    m_state.stopTimer();
    m_state.setElapsedSeconds(0);
    if (m_compositing && m_compositing()) {
        auto* fade = new QPropertyAnimation(panel, "windowOpacity", panel);
        fade->setDuration(150);
        fade->setEndValue(0.0);
        QObject::connect(fade, &QPropertyAnimation::finished, panel, &QWidget::close);
        fade->start(QAbstractAnimation::DeleteWhenStopped);
        m_fading.removeAll(nullptr);
        m_fading.append(panel);
    } else {
        panel->close();
    }
}

std::optional<QSizeF> RecordingToolbarWindowController::panelSize() const
{
    if (!m_panel) {
        return std::nullopt;
    }
    return QSizeF(m_panel->size());
}

void RecordingToolbarWindowController::movePanel(const QPointF& origin)
{
    if (!m_panel) {
        return;
    }
    // `origin` is the panel's bottom-left corner in the y-up space.
    const QPointF bottomLeft = toQtPoint(origin, primaryGeometry());
    m_panel->move(QPointF(bottomLeft.x(), bottomLeft.y() - m_panel->height()).toPoint());
}

namespace {

class BorderWindow : public QWidget
{
public:
    explicit BorderWindow(bool compositing)
        : QWidget(nullptr, floatingFlags() | Qt::WindowTransparentForInput), m_compositing(compositing)
    {
        setAttribute(Qt::WA_ShowWithoutActivating);
        setAttribute(Qt::WA_TransparentForMouseEvents);
        setAttribute(Qt::WA_DeleteOnClose);
        if (compositing) {
            setAttribute(Qt::WA_TranslucentBackground);
            // The glow breathes from 0.2 to 0.75 and back every 2.8 s.
            auto* glow = new QVariantAnimation(this);
            glow->setStartValue(0.2);
            glow->setKeyValueAt(0.5, 0.75);
            glow->setEndValue(0.2);
            glow->setDuration(2800);
            glow->setEasingCurve(QEasingCurve::InOutSine);
            glow->setLoopCount(-1);
            connect(glow, &QVariantAnimation::valueChanged, this, [this](const QVariant& value) {
                m_glow = value.toDouble();
                update();
            });
            glow->start();
        }
    }
    double glow() const { return m_glow; }

protected:
    void resizeEvent(QResizeEvent*) override
    {
        // Only the ring outside the region is window; the region itself stays untouched.
        setMask(QRegion(rect()).subtracted(QRegion(rect().adjusted(4, 4, -4, -4))));
    }
    void paintEvent(QPaintEvent*) override
    {
        QPainter p(this);
        p.setRenderHint(QPainter::Antialiasing);
        const QRectF path = geometry::borderPathRect(QSizeF(size()));
        if (m_compositing) {
            p.setCompositionMode(QPainter::CompositionMode_Source);
            p.fillRect(rect(), Qt::transparent);
            p.setCompositionMode(QPainter::CompositionMode_SourceOver);
            p.setPen(QPen(QColor(255, 59, 48, qRound(m_glow * 0.6 * 255)), 4));
            p.drawRoundedRect(path, 6, 6);
        }
        p.setPen(QPen(QColor::fromRgbF(1.0f, 0.22f, 0.22f, m_compositing ? 0.9f : 1.0f), 1.5));
        p.setBrush(Qt::NoBrush);
        p.drawRoundedRect(path, 6, 6);
    }

private:
    bool m_compositing;
    double m_glow = 0.55;
};

} // namespace

void RecordingBorderOverlay::show(const QRectF& region)
{
    hide();
    auto* window = new BorderWindow(m_compositing && m_compositing());
    window->setGeometry(toQtRect(geometry::borderFrame(region), primaryGeometry()).toRect());
    window->show();
    m_window = window;
}

void RecordingBorderOverlay::hide()
{
    if (m_window) {
        m_window->close();
    }
    m_window = nullptr;
}

} // namespace vantalo
