#include "PreviewPanelView.h"

#include "PanelRowIndicator.h"
#include "PanelRule.h"
#include "PanelStyle.h"
#include "common/FloatingWindow.h"
#include "recording/GifRecoder.h"

#include <QHBoxLayout>
#include <QMenu>
#include <QMouseEvent>
#include <QPainter>
#include <QVBoxLayout>

namespace vantalo {

using namespace panel;

PreviewPanelView::PreviewPanelView(const QString& gifPath, const QString& fileSize,
                                   std::shared_ptr<PreviewPanelState> state, bool compositing)
    : m_state(std::move(state)), m_compositing(compositing)
{
    makeFloating(this, FloatingInput::takesClicks, FloatingPlacement::managed);
    setAttribute(Qt::WA_TranslucentBackground);
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
    layout->addWidget(new PanelRule(Qt::Horizontal, this));

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
            buttonRow->addWidget(new PanelRule(Qt::Vertical, buttons));
        }
        buttonRow->addWidget(button);
    }
    auto* progressPage = new QWidget(m_row);
    auto* progressRow = new QHBoxLayout(progressPage);
    progressRow->setContentsMargins(6, 0, 6, 0);
    progressRow->setSpacing(0);
    m_indicator = new PanelRowIndicator(m_state, progressPage);
    m_cancel = new PanelActionButton(Symbol::xmark, QStringLiteral("Cancel"), kButtonTint, progressPage);
    m_cancel->setFixedWidth(64);
    progressRow->addWidget(m_indicator, 1);
    progressRow->addWidget(m_cancel);
    m_row->addWidget(buttons);
    m_row->addWidget(progressPage);
    layout->addWidget(m_row);

    // The sizes to fit under, and the trim window for everything else.
    m_fitMenu = new QMenu(this);
    // In the panel's own look, not a light menu over the dark panel.
    m_fitMenu->setStyleSheet(QStringLiteral(
        "QMenu { background: rgb(38, 38, 40); color: rgba(255, 255, 255, 0.9); border: 1px solid rgba(255, "
        "255, "
        "255, 0.12); padding: 4px; }"
        "QMenu::item { padding: 5px 18px; border-radius: 5px; }"
        "QMenu::item:selected { background: rgba(255, 255, 255, 0.12); }"
        "QMenu::separator { height: 1px; background: rgba(255, 255, 255, 0.12); margin: 4px 8px; }"));
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
        // The same place serves a running job's Cancel and a notice's action.
        const auto& call = m_shownRow == PreviewPanelState::Row::notice ? onNoticeAction : onCancelWork;
        if (call) {
            call();
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
    return static_cast<PanelRowIndicator*>(m_indicator)->text();
}

void PreviewPanelView::refreshRow()
{
    m_shownRow = m_state->row();
    using Row = PreviewPanelState::Row;
    m_row->setCurrentIndex(m_shownRow == Row::ready || m_shownRow == Row::uploaded ? 0 : 1);
    const bool action = m_shownRow == Row::notice && !m_state->noticeAction().isEmpty();
    m_cancel->setVisible(m_shownRow == Row::working || action);
    m_cancel->setLook(action ? Symbol::arrowUturnLeft : Symbol::xmark,
                      action ? m_state->noticeAction() : QStringLiteral("Cancel"), kButtonTint);
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

} // namespace vantalo
