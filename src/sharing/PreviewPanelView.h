#pragma once

#include "FeedbackMessageWindow.h"
#include "GifImageView.h"
#include "PanelActionButton.h"
#include "PanelCloseButton.h"
#include "PreviewPanelState.h"

#include <QPointer>
#include <QStackedWidget>
#include <QWidget>

#include <functional>
#include <memory>

class QMenu;

namespace vantalo {

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
    // The button of a notice that has one ("Undo").
    std::function<void()> onNoticeAction;
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

} // namespace vantalo
