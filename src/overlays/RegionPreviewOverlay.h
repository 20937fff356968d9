#pragma once

#include "OverlayWindow.h"
#include "ScreenStills.h"
#include "capture/CaptureCollaborators.h"
#include "common/RegionGeometry.h"

#include <QComboBox>
#include <QPointer>

#include <optional>

namespace vantalo {

// The chosen region on its display, dimmed at 0.38 around it, outlined, with eight handles and
// its size. Dragging inside moves it, dragging a handle resizes it, the arrow keys move it by a
// point (Shift: ten); a click on the size (or Tab) lets the user type one or pick a common one.
// Every step is reported.
class RegionPreviewView : public OverlayWindow
{
    Q_OBJECT
public:
    RegionPreviewView(QScreen* screen, const QImage& still, const QRectF& region);

    QRectF region() const { return m_region; }
    std::function<void(const QRectF& viewRegion)> onRegionChanged;

    // The size editor over the label, open until a size is taken or Escape; null when closed.
    QComboBox* sizeEditor() const { return m_sizeEditor; }
    void editSize();
    void setCountdown(int secondsLeft);
    int countdown() const { return m_countdown; }

protected:
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void paintEvent(QPaintEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;
    // Tab opens the size editor rather than moving the focus.
    bool focusNextPrevChild(bool) override { return false; }

private:
    void updateCursor(const QPointF& viewPoint);
    void setRegion(const QRectF& region);
    void closeSizeEditor();

    QRectF m_region;
    std::optional<geometry::Handle> m_activeHandle;
    bool m_isMoving = false;
    QPointF m_dragStart;
    QRectF m_baseRegion;
    QRectF m_labelBox; // widget coordinates, as last painted
    QPointer<QComboBox> m_sizeEditor;
    int m_countdown = 0;
};

class RegionPreviewOverlay final : public RegionAdjuster
{
public:
    // `stills` is shared with the selection, whose stills it paints.
    explicit RegionPreviewOverlay(std::function<bool()> compositing,
                                  std::shared_ptr<ScreenStills> stills = {})
        : m_compositing(std::move(compositing)),
          m_stills(stills ? std::move(stills) : std::make_shared<ScreenStills>())
    {
    }
    ~RegionPreviewOverlay() override { hide(); }

    void show(const DisplayInfo& display, const QRectF& region) override;
    // Ends the capture's stills.
    void hide() override;
    void showCountdown(int secondsLeft) override;
    QImage stillOf(const QString& displayName) const override { return m_stills->takenOf(displayName); }
    RegionPreviewView* window() const { return m_window; }

private:
    void closeWindow();

    std::function<bool()> m_compositing;
    std::shared_ptr<ScreenStills> m_stills;
    QPointer<RegionPreviewView> m_window;
};

} // namespace vantalo
