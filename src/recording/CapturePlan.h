#pragma once

#include "CaptureBackend.h"

#include <QRectF>
#include <QSize>

#include <chrono>
#include <optional>

namespace vantalo {

// What to grab for a region, and how the grabbed pixels become the frame.
struct CapturePlan
{
    CaptureDisplay display;
    QRect nativeRect; // what the backend grabs
    int scale = 1;    // each grabbed pixel becomes scale × scale output pixels
    QSize outputSize; // twice the region's whole points
};

// Picks the display and the pixels for a region given relative to a display's top-left corner in
// points: the display it was chosen on when that one holds it; otherwise the first display whose
// (0, 0, width, height) holds the region, else the first one.
// Frames are twice the region's whole points in size; where a point is two pixels they are
// grabbed as they are, where it is one each pixel is doubled. Nothing when there is no display.
std::optional<CapturePlan> planCapture(const QList<CaptureDisplay>& displays, const QRectF& region,
                                       double devicePixelRatio, const QString& preferredDisplay = {});

// Frame k is due at start + k / rate on a steady clock. After a grab that ended at `elapsed`
// the next slot is the one after `slot`, unless later slots are already due: then the latest of
// them is taken at once and the ones before it are skipped, never grabbed in a burst.
struct PacingStep
{
    long long nextSlot;
    long long skipped;
};
PacingStep nextFrameSlot(long long slot, std::chrono::nanoseconds elapsed, int frameRate);
std::chrono::nanoseconds slotTime(long long slot, int frameRate);

} // namespace vantalo
