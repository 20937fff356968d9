#pragma once

#include "PreviewPanelState.h"
#include "common/Symbols.h"

#include <QAbstractButton>
#include <QMovie>
#include <QPointer>
#include <QStackedWidget>
#include <QWidget>

#include <functional>
#include <memory>

class QMenu;
class QVariantAnimation;

namespace vantalo {

// Plays a GIF file scaled to fit, keeping its aspect ratio; stays empty when the file cannot be
// read. Only animates while visible.
class GifImageView : public QWidget
{
    Q_OBJECT
public:
    GifImageView(const QString& path, QSize maximumSize, QWidget* parent = nullptr);

    // The picture's size once fitted into the maximum (up or down); empty for an unreadable file.
    QSize fittedSize() const { return m_fitted; }
    bool isPlaying() const { return m_movie && m_movie->state() == QMovie::Running; }
    // The text in the badge at the bottom-right corner (none when empty).
    void setBadge(const QString& text);
    QString badge() const { return m_badge; }

    std::function<void()> onClick;
    // A press and drag takes the file out (a drag and drop); told when it starts and ends.
    std::function<void(bool dragging)> onDragging;

protected:
    void paintEvent(QPaintEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;

private:
    QString m_path;
    std::unique_ptr<QMovie> m_movie;
    QSize m_fitted;
    QString m_badge;
    QPoint m_pressGlobal;
    bool m_pressed = false;
};

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

// The panel shown when a GIF is ready: the playing preview with its size, a close button, and a
// row of actions (Upload or Copy URL, Copy, Fit, Delete) that turns into an indicator while an
// upload or a fit runs, and shows a notice after. A floating window that never takes the keyboard
// focus.
class PreviewPanelView : public QWidget
{
    Q_OBJECT
public:
    static constexpr int panelWidth = 280;
    static constexpr int previewMaxHeight = 220;
    static constexpr int actionRowHeight = 54;
    static constexpr int cornerRadius = 14;

    PreviewPanelView(const QString& gifPath, const QString& fileSize,
                     std::shared_ptr<PreviewPanelState> state, bool compositing);

    std::function<void()> onUpload;
    std::function<void()> onCopy;
    std::function<void()> onCopyURL;
    std::function<void()> onDelete;
    std::function<void()> onOpenInApp;
    std::function<void()> onClose;
    std::function<void(qint64 budget)> onFit;
    std::function<void()> onTrim;
    std::function<void()> onCancelWork;
    std::function<void(bool dragging)> onDragging;

    QSize fittingSize() const;

    GifImageView* preview() const { return m_preview; }
    PanelCloseButton* closeButton() const { return m_close; }
    PanelActionButton* uploadButton() const { return m_first; }
    PanelActionButton* copyButton() const { return m_copy; }
    PanelActionButton* fitButton() const { return m_fit; }
    PanelActionButton* deleteButton() const { return m_delete; }
    PanelActionButton* cancelButton() const { return m_cancel; }
    // The Fit button's choices: the sizes, a separator, "Trim and more…".
    QMenu* fitMenu() const { return m_fitMenu; }
    // What the row shows: the buttons, or the indicator and its text.
    PreviewPanelState::Row shownRow() const { return m_shownRow; }
    QString rowText() const;

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;

private:
    void refreshRow();

    std::shared_ptr<PreviewPanelState> m_state;
    bool m_compositing;
    GifImageView* m_preview;
    PanelCloseButton* m_close;
    QStackedWidget* m_row;
    PanelActionButton* m_first;
    PanelActionButton* m_copy;
    PanelActionButton* m_fit;
    PanelActionButton* m_delete;
    PanelActionButton* m_cancel;
    QWidget* m_indicator;
    QMenu* m_fitMenu;
    PreviewPanelState::Row m_shownRow = PreviewPanelState::Row::ready;
    QPoint m_dragOffset;
};

// A short message ("Copied!") over the panel: fades in, stays 1.2 s, fades out and goes.
class FeedbackMessageWindow : public QWidget
{
    Q_OBJECT
public:
    static constexpr int minimumMessageWidth = 80;
    static constexpr int messageHeight = 32;

    FeedbackMessageWindow(const QString& message, bool compositing);
    QString message() const { return m_message; }
    // Centres the window on a point (Qt's global space).
    void showCentredOn(const QPoint& centre);

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QString m_message;
    bool m_compositing;
};

// The flags of a floating panel that never takes the keyboard focus from the application in front.
void makeFloatingPanel(QWidget* window, bool clickThrough);

} // namespace vantalo
