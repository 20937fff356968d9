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
    QSize outputSize; // the region's whole points times the output scale
};

// Picks the display and the pixels for a region given relative to a display's top-left corner in
// points: the display it was chosen on (whether or not the region reaches past its edge); without
// one, the first display whose (0, 0, width, height) holds the region, else the first one.
// Frames are the region's whole points times `outputScale` (2, or 1 for a pixel a point); where
// a point is as many pixels they are grabbed as they are, where it is half as many each pixel is
// doubled, and otherwise the grabbed pixels are resampled. Nothing when there is no display.
std::optional<CapturePlan> planCapture(const QList<CaptureDisplay>& displays, const QRectF& region,
                                       double devicePixelRatio, const QString& preferredDisplay = {},
                                       int outputScale = 2);

// The recording's timeline: slot k is due at start + k / rate on a steady clock, and every slot
// before the stop becomes one frame of the GIF, so the GIF lasts as long as the recording.
std::chrono::nanoseconds slotTime(long long slot, int frameRate);
// The latest slot due by `elapsed` (slot 0 at the start).
long long latestSlotDue(std::chrono::nanoseconds elapsed, int frameRate);
// How many slots begin before `elapsed`: the frames of a recording that lasted that long.
long long slotsBefore(std::chrono::nanoseconds elapsed, int frameRate);

// Whether `frame` still shows windows that have not repainted since Vantalo's overlays went: a
// tenth or more of its tiles of 16 × 16 pixels all of one colour (a window's bare background)
// where `before`, the same pixels before the overlays, showed something else. Images of
// different sizes say nothing.
bool showsUnpaintedWindows(const QImage& frame, const QImage& before);

} // namespace vantalo
