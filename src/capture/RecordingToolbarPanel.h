#pragma once

#include "RecordingToolbarState.h"

#include <QPointer>
#include <QWidget>

#include <functional>

namespace vantalo {

// Where a window takes mouse input, its own coordinates; the rest lets clicks through to what
// lies below. Only the platform can set it apart from what the window shows.
using InputRegionSetter = std::function<void(QWindow* window, const QRegion& region)>;

// The floating toolbar: a 40-point capsule inside 20 points of padding, holding the red Start dot,
// or, while recording, Restart, Pause (Resume while paused), the stop square and the elapsed time. It never
// takes the keyboard focus from the application in front.
class RecordingToolbarPanel : public QWidget
{
    Q_OBJECT
public:
    enum class Button
    {
        none,
        restart,
        pauseResume,
        recordStop,
    };

    RecordingToolbarPanel(RecordingToolbarState& state, bool compositing, InputRegionSetter inputRegion = {});

    // The buttons' rectangles in widget coordinates, for the current look.
    QRectF buttonRect(Button button) const;
    Button hovered() const { return m_hovered; }
    QSize contentSize() const;

    std::function<void(Button)> onPressed;
    // Where the panel goes for a size (global Qt coordinates): asked whenever its look changes size.
    std::function<QRect(const QSize& size)> place;
    // The recorded region (global Qt coordinates): nothing of the panel is drawn over it while
    // recording, and a panel whose capsule lies inside it hides itself for the recording.
    void setKeepOut(const QRect& region);

protected:
    void paintEvent(QPaintEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void leaveEvent(QEvent* event) override;

private:
    void relayout();
    bool recording() const;
    Button buttonAt(const QPointF& p) const;
    QString toolTipFor(Button button) const;
    double labelWidth() const;

    // A panel fading out may outlive its controller and the state with it.
    QPointer<RecordingToolbarState> m_state;
    bool m_compositing;
    InputRegionSetter m_inputRegion;
    QRect m_keepOut;
    Button m_hovered = Button::none;
};

} // namespace vantalo
