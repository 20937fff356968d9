#include "PreviewPanelView.h"

#include "common/GifTransfer.h"

#include "common/FloatingWindow.h"
#include "common/GifMovie.h"
#include "recording/GifRecoder.h"

#include <QHBoxLayout>
#include <QMenu>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QPropertyAnimation>
#include <QTimer>
#include <QVBoxLayout>
#include <QVariantAnimation>

namespace vantalo {

namespace {

const QColor kWhite(255, 255, 255);
const QColor kHudFill(30, 30, 32, 236);
const QColor kButtonTint(255, 255, 255, 191);
const QColor kGreen = QColor::fromRgbF(0.3f, 0.9f, 0.45f);
const QColor kRed = QColor::fromRgbF(1.0f, 0.42f, 0.42f);

QColor white(double opacity)
{
    QColor c = kWhite;
    c.setAlphaF(float(opacity));
    return c;
}

QFont panelFont(double pixelSize, QFont::Weight weight)
{
    QFont f;
    f.setPixelSize(int(std::lround(pixelSize)));
    f.setWeight(weight);
    return f;
}

// Eases `value` (a member of `owner`) to `to`, replacing the animation of it still running, and
// repaints `owner` at every step.
void animateValue(QWidget* owner, QPointer<QVariantAnimation>& running, double& value, double to,
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

QPainterPath roundedPath(const QRectF& rect, double radius)
{
    QPainterPath path;
    path.addRoundedRect(rect, radius, radius);
    return path;
}

// In place of the actions: an upload (a spinner, or a bar once the size is known) or a fit (a bar)
// with its text, or a notice.
class RowIndicator : public QWidget
{
public:
    RowIndicator(std::shared_ptr<PreviewPanelState> state, QWidget* parent)
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
        const QFont f = panelFont(11, QFont::Normal);
        p.setFont(f);
        const QString label = text();
        const PreviewPanelState::Row row = m_state->row();
        if (row == PreviewPanelState::Row::notice) {
            p.setPen(white(0.75));
            p.drawText(QRectF(rect()).adjusted(12, 0, -12, 0), Qt::AlignCenter | Qt::TextWordWrap, label);
            return;
        }
        std::optional<double> fraction;
        if (row == PreviewPanelState::Row::working) {
            fraction = m_state->workProgress();
        } else if (const std::optional<int> percent = m_state->progressPercent()) {
            fraction = *percent / 100.0;
        }
        const QSizeF indicator = fraction ? QSizeF(56, 4) : QSizeF(14, 14);
        const double textWidth = QFontMetricsF(f).horizontalAdvance(label);
        const double total = indicator.width() + 8 + textWidth;
        const double x = std::max(4.0, (width() - total) / 2);
        const QRectF box(QPointF(x, (height() - indicator.height()) / 2), indicator);
        if (fraction) {
            p.setPen(Qt::NoPen);
            p.setBrush(white(0.15));
            p.drawRoundedRect(box, 2, 2);
            p.setBrush(white(0.7));
            p.drawRoundedRect(
                QRectF(box.topLeft(), QSizeF(box.width() * std::clamp(*fraction, 0.0, 1.0), box.height())), 2,
                2);
        } else {
            p.setPen(QPen(white(0.6), 1.8, Qt::SolidLine, Qt::RoundCap));
            p.drawArc(box.adjusted(1, 1, -1, -1), int(-m_spin.currentValue().toDouble() * 16), 270 * 16);
        }
        p.setPen(white(0.5));
        p.drawText(QRectF(x + indicator.width() + 8, 0, textWidth + 2, height()), Qt::AlignVCenter, label);
    }

private:
    std::shared_ptr<PreviewPanelState> m_state;
    QVariantAnimation m_spin;
};

class Separator : public QWidget
{
public:
    explicit Separator(QWidget* parent) : QWidget(parent) { setFixedWidth(1); }

protected:
    void paintEvent(QPaintEvent*) override
    {
        QPainter p(this);
        p.fillRect(QRectF(0, (height() - 28) / 2.0, 1, 28), white(0.08));
    }
};

class Divider : public QWidget
{
public:
    explicit Divider(QWidget* parent) : QWidget(parent) { setFixedHeight(1); }

protected:
    void paintEvent(QPaintEvent*) override
    {
        QPainter p(this);
        p.fillRect(rect(), white(0.08));
    }
};

} // namespace

void makeFloatingPanel(QWidget* window, bool clickThrough)
{
    Qt::WindowFlags flags = floatingWindowFlags() | Qt::NoDropShadowWindowHint;
    if (clickThrough) {
        flags |= Qt::WindowTransparentForInput;
    }
    window->setWindowFlags(flags);
    window->setAttribute(Qt::WA_ShowWithoutActivating);
    window->setAttribute(Qt::WA_TranslucentBackground);
    window->setFocusPolicy(Qt::NoFocus);
}

// ---- GifImageView

GifImageView::GifImageView(const QString& path, QSize maximumSize, QWidget* parent)
    : QWidget(parent), m_path(path)
{
    if (std::optional<FittedMovie> fitted = openFittedMovie(path, maximumSize)) {
        m_fitted = fitted->size;
        m_movie = std::move(fitted->movie);
        connect(m_movie.get(), &QMovie::frameChanged, this, [this] { update(); });
    }
    setCursor(Qt::PointingHandCursor);
}

void GifImageView::setBadge(const QString& text)
{
    m_badge = text;
    update();
}

void GifImageView::showEvent(QShowEvent*)
{
    if (m_movie && m_movie->frameCount() != 1) {
        m_movie->start();
    }
}

void GifImageView::hideEvent(QHideEvent*)
{
    if (m_movie) {
        m_movie->setPaused(true);
    }
}

void GifImageView::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    p.setRenderHint(QPainter::SmoothPixmapTransform);
    p.setRenderHint(QPainter::Antialiasing);
    // The picture keeps to the panel's rounded corners.
    const QPointF offset = mapTo(window(), QPoint());
    p.setClipPath(roundedPath(QRectF(window()->rect()).translated(-offset), PreviewPanelView::cornerRadius));
    if (m_movie) {
        const QImage frame = m_movie->currentImage();
        QRect target(QPoint(), m_fitted);
        target.moveCenter(rect().center());
        p.drawImage(target, frame);
    }
    if (m_badge.isEmpty()) {
        return;
    }
    QFont f = panelFont(10, QFont::DemiBold);
    f.setStyleHint(QFont::SansSerif);
    p.setFont(f);
    const QSizeF text = QFontMetricsF(f).size(Qt::TextSingleLine, m_badge);
    const QSizeF capsule(text.width() + 14, text.height() + 6);
    const QRectF box(QPointF(width() - 8 - capsule.width(), height() - 8 - capsule.height()), capsule);
    p.setPen(Qt::NoPen);
    p.setBrush(QColor(0, 0, 0, 140));
    p.drawRoundedRect(box, capsule.height() / 2, capsule.height() / 2);
    p.setPen(white(0.9));
    p.drawText(box, Qt::AlignCenter, m_badge);
}

void GifImageView::mousePressEvent(QMouseEvent* event)
{
    if (event->button() != Qt::LeftButton) {
        return;
    }
    m_pressed = true;
    m_pressGlobal = event->globalPosition().toPoint();
}

void GifImageView::mouseMoveEvent(QMouseEvent* event)
{
    // Past the threshold a press becomes a drag of the file, out of the panel.
    if (!m_pressed ||
        (event->globalPosition().toPoint() - m_pressGlobal).manhattanLength() <= dragThresholdPx) {
        return;
    }
    m_pressed = false;
    // A copy: the view may be gone when the drop is done.
    const auto dragging = onDragging;
    if (dragging) {
        dragging(true);
    }
    dragGifFile(m_path, m_movie ? m_movie->currentPixmap() : QPixmap());
    if (dragging) {
        dragging(false);
    }
}

void GifImageView::mouseReleaseEvent(QMouseEvent* event)
{
    const bool click = m_pressed && event->button() == Qt::LeftButton && rect().contains(event->pos());
    m_pressed = false;
    if (click && onClick) {
        onClick();
    }
}

// ---- PanelCloseButton

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

// ---- PanelActionButton

PanelActionButton::PanelActionButton(Symbol symbol, const QString& label, QColor tint, QWidget* parent)
    : QAbstractButton(parent), m_symbol(symbol), m_tint(tint)
{
    setText(label);
    setFocusPolicy(Qt::NoFocus);
    setCursor(Qt::PointingHandCursor);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
    connect(this, &QAbstractButton::pressed, this,
            [this] { animateValue(this, m_animation, m_pressed, 1.0, 100); });
    connect(this, &QAbstractButton::released, this,
            [this] { animateValue(this, m_animation, m_pressed, 0.0, 100); });
}

void PanelActionButton::setLook(Symbol symbol, const QString& label, QColor tint)
{
    m_symbol = symbol;
    m_tint = tint;
    setText(label);
    update();
}

QSize PanelActionButton::sizeHint() const
{
    return {72, 44};
}

void PanelActionButton::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const QFont labelFont = panelFont(9.5, QFont::Medium);
    const double textHeight = QFontMetricsF(labelFont).height();
    const double contentHeight = 14 + 4 + textHeight;
    const double top = (height() - contentHeight) / 2;
    if (m_pressed > 0) {
        p.setPen(Qt::NoPen);
        p.setBrush(white(0.08 * m_pressed));
        p.drawRoundedRect(QRectF(rect()).adjusted(4, 4, -4, -4), 6, 6);
    }
    paintSymbol(p, m_symbol, QRectF(width() / 2.0 - 8, top - 1, 16, 16), m_tint, 1.5);
    p.setFont(labelFont);
    p.setPen(m_tint);
    p.drawText(QRectF(0, top + 18, width(), textHeight), Qt::AlignHCenter | Qt::AlignTop, text());
}

// ---- PreviewPanelView

PreviewPanelView::PreviewPanelView(const QString& gifPath, const QString& fileSize,
                                   std::shared_ptr<PreviewPanelState> state, bool compositing)
    : m_state(std::move(state)), m_compositing(compositing)
{
    makeFloatingPanel(this, false);
    setWindowTitle(QStringLiteral("Vantalo Preview"));

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);

    m_preview = new GifImageView(gifPath, QSize(panelWidth, previewMaxHeight), this);
    const QSize fitted = m_preview->fittedSize();
    // An unreadable GIF leaves an empty picture of a common shape; the actions still work.
    m_preview->setFixedSize(panelWidth, fitted.isEmpty() ? 158 : fitted.height());
    m_preview->setBadge(fileSize);
    m_preview->onClick = [this] {
        if (onOpenInApp) {
            onOpenInApp();
        }
    };
    m_preview->onDragging = [self = QPointer(this)](bool dragging) {
        if (self && self->onDragging) {
            self->onDragging(dragging);
        }
    };
    layout->addWidget(m_preview);
    layout->addWidget(new Divider(this));

    m_row = new QStackedWidget(this);
    m_row->setFixedHeight(actionRowHeight);
    auto* buttons = new QWidget(m_row);
    auto* buttonRow = new QHBoxLayout(buttons);
    buttonRow->setContentsMargins(6, 0, 6, 0);
    buttonRow->setSpacing(0);
    m_first = new PanelActionButton(Symbol::cloudUpload, QStringLiteral("Upload"), kButtonTint, buttons);
    m_copy = new PanelActionButton(Symbol::clipboard, QStringLiteral("Copy"), kButtonTint, buttons);
    m_fit = new PanelActionButton(Symbol::arrowsInward, QStringLiteral("Fit"), kButtonTint, buttons);
    m_delete = new PanelActionButton(Symbol::trash, QStringLiteral("Delete"), kRed, buttons);
    for (PanelActionButton* button : {m_first, m_copy, m_fit, m_delete}) {
        if (button != m_first) {
            buttonRow->addWidget(new Separator(buttons));
        }
        buttonRow->addWidget(button);
    }
    auto* progressPage = new QWidget(m_row);
    auto* progressRow = new QHBoxLayout(progressPage);
    progressRow->setContentsMargins(6, 0, 6, 0);
    progressRow->setSpacing(0);
    m_indicator = new RowIndicator(m_state, progressPage);
    m_cancel = new PanelActionButton(Symbol::xmark, QStringLiteral("Cancel"), kButtonTint, progressPage);
    m_cancel->setFixedWidth(64);
    progressRow->addWidget(m_indicator, 1);
    progressRow->addWidget(m_cancel);
    m_row->addWidget(buttons);
    m_row->addWidget(progressPage);
    layout->addWidget(m_row);

    // The sizes to fit under, and the trim window for everything else.
    m_fitMenu = new QMenu(this);
    for (const FitPreset& preset : fitPresets()) {
        m_fitMenu->addAction(preset.label, this, [this, bytes = preset.bytes] {
            if (onFit) {
                onFit(bytes);
            }
        });
    }
    m_fitMenu->addSeparator();
    m_fitMenu->addAction(QStringLiteral("Trim and more\u2026"), this, [this] {
        if (onTrim) {
            onTrim();
        }
    });

    connect(m_first, &QAbstractButton::clicked, this, [this] {
        if (m_state->uploadedURL()) {
            if (onCopyURL) {
                onCopyURL();
            }
        } else {
            m_state->setUploading(true);
            if (onUpload) {
                onUpload();
            }
        }
    });
    connect(m_copy, &QAbstractButton::clicked, this, [this] {
        if (onCopy) {
            onCopy();
        }
    });
    connect(m_fit, &QAbstractButton::clicked, this, [this] {
        // Above the button: the panel sits at the bottom of the screen.
        const QSize size = m_fitMenu->sizeHint();
        m_fitMenu->popup(m_fit->mapToGlobal(QPoint(m_fit->width() / 2 - size.width() / 2, -size.height())));
    });
    connect(m_delete, &QAbstractButton::clicked, this, [this] {
        if (onDelete) {
            onDelete();
        }
    });
    connect(m_cancel, &QAbstractButton::clicked, this, [this] {
        if (onCancelWork) {
            onCancelWork();
        }
    });

    m_close = new PanelCloseButton(this);
    connect(m_close, &QAbstractButton::clicked, this, [this] {
        if (onClose) {
            onClose();
        }
    });

    connect(m_state.get(), &PreviewPanelState::changed, this, &PreviewPanelView::refreshRow);
    refreshRow();
    setFixedSize(fittingSize());
}

QSize PreviewPanelView::fittingSize() const
{
    return {panelWidth, m_preview->height() + 1 + actionRowHeight};
}

QString PreviewPanelView::rowText() const
{
    return static_cast<RowIndicator*>(m_indicator)->text();
}

void PreviewPanelView::refreshRow()
{
    m_shownRow = m_state->row();
    using Row = PreviewPanelState::Row;
    m_row->setCurrentIndex(m_shownRow == Row::ready || m_shownRow == Row::uploaded ? 0 : 1);
    m_cancel->setVisible(m_shownRow == Row::working);
    if (m_shownRow == PreviewPanelState::Row::uploaded) {
        m_first->setLook(Symbol::cloudCheckmark, QStringLiteral("Copy URL"), kGreen);
    } else {
        m_first->setLook(Symbol::cloudUpload, QStringLiteral("Upload"), kButtonTint);
    }
    m_indicator->update();
}

void PreviewPanelView::resizeEvent(QResizeEvent*)
{
    m_close->move(width() - 10 - m_close->width(), 10);
    m_close->raise();
    if (!m_compositing) {
        // Without a compositor the corners would be black: cut them off instead.
        setMask(QRegion(roundedPath(QRectF(rect()), cornerRadius).toFillPolygon().toPolygon()));
    }
}

void PreviewPanelView::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const QRectF bounds = QRectF(rect());
    p.setPen(Qt::NoPen);
    p.setBrush(m_compositing ? kHudFill : QColor(kHudFill.rgb()));
    p.drawPath(roundedPath(bounds, cornerRadius));
    p.setClipPath(roundedPath(bounds, cornerRadius));
    p.setPen(QPen(white(0.08), 1.0));
    p.setBrush(Qt::NoBrush);
    p.drawPath(roundedPath(bounds.adjusted(0.5, 0.5, -0.5, -0.5), cornerRadius - 0.5));
}

void PreviewPanelView::mousePressEvent(QMouseEvent* event)
{
    m_dragOffset = event->globalPosition().toPoint() - pos();
}

void PreviewPanelView::mouseMoveEvent(QMouseEvent* event)
{
    if (event->buttons() & Qt::LeftButton) {
        move(event->globalPosition().toPoint() - m_dragOffset);
    }
}

// ---- FeedbackMessageWindow

FeedbackMessageWindow::FeedbackMessageWindow(const QString& message, bool compositing)
    : m_message(message), m_compositing(compositing)
{
    makeFloatingPanel(this, true);
    setAttribute(Qt::WA_DeleteOnClose);
    const int textWidth =
        int(std::ceil(QFontMetricsF(panelFont(13, QFont::DemiBold)).horizontalAdvance(message)));
    setFixedSize(std::max(minimumMessageWidth, textWidth + 24), messageHeight);
    if (!compositing) {
        setMask(QRegion(roundedPath(QRectF(rect()), 10).toFillPolygon().toPolygon()));
    }
}

void FeedbackMessageWindow::showCentredOn(const QPoint& centre)
{
    move(centre.x() - width() / 2, centre.y() - messageHeight / 2);
    if (!m_compositing) {
        show();
        QTimer::singleShot(1500, this, &QWidget::close);
        return;
    }
    setWindowOpacity(0.0);
    show();
    auto* fadeIn = new QPropertyAnimation(this, "windowOpacity", this);
    fadeIn->setDuration(150);
    fadeIn->setEndValue(1.0);
    fadeIn->start(QAbstractAnimation::DeleteWhenStopped);
    QTimer::singleShot(1200, this, [this] {
        auto* fadeOut = new QPropertyAnimation(this, "windowOpacity", this);
        fadeOut->setDuration(300);
        fadeOut->setEndValue(0.0);
        connect(fadeOut, &QPropertyAnimation::finished, this, &QWidget::close);
        fadeOut->start(QAbstractAnimation::DeleteWhenStopped);
    });
}

void FeedbackMessageWindow::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(Qt::NoPen);
    p.setBrush(QColor(40, 40, 44, m_compositing ? 235 : 255));
    p.drawRoundedRect(QRectF(rect()), 10, 10);
    p.setFont(panelFont(13, QFont::DemiBold));
    p.setPen(kWhite);
    p.drawText(QRectF(0, 6, width(), 20), Qt::AlignCenter, m_message);
}

} // namespace vantalo
