#pragma once

#include "recording/GifTimeline.h"

#include <QList>
#include <QPixmap>
#include <QWidget>

#include <functional>
#include <optional>

namespace vantalo {

// The strip under the picture: the frames side by side (each as wide as it lasts), the part kept
// bright between a start and an end handle, and where the playing frame is.
class TrimTimelineView : public QWidget
{
    Q_OBJECT
public:
    enum class Handle
    {
        start,
        end,
    };
    static constexpr int handleWidth = 10;

    explicit TrimTimelineView(QWidget* parent = nullptr);
    void setTimeline(const GifTimeline* timeline);
    void setSpan(FrameSpan span);
    FrameSpan span() const { return m_span; }
    void setPlayhead(int frame);
    // The x of a handle, in the view's coordinates.
    int handleX(Handle handle) const;
    QSize sizeHint() const override { return {560, 64}; }

    // A handle was dragged; the span is already changed.
    std::function<void(Handle handle)> onHandleMoved;

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;

private:
    QRectF stripRect() const;
    const QList<qint64>& starts() const
    {
        static const QList<qint64> none;
        return m_timeline ? m_timeline->starts : none;
    }
    double xOfTime(qint64 time) const;
    // The frame boundary nearest to `x`: 0 (the start) to the frame count (the end).
    int boundaryAt(double x) const;

    const GifTimeline* m_timeline = nullptr;
    FrameSpan m_span;
    int m_playhead = -1;
    std::optional<Handle> m_dragging;
    QList<QPixmap> m_cells; // the strip's pictures, made for the current width
};

} // namespace vantalo
