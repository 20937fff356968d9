#include "CapturePlan.h"

#include <cmath>

namespace vantalo {

std::optional<CapturePlan> planCapture(const QList<CaptureDisplay>& displays, const QRectF& region,
                                       double devicePixelRatio, const QString& preferredDisplay,
                                       int outputScale)
{
    if (displays.isEmpty()) {
        return std::nullopt;
    }
    const double dpr = devicePixelRatio > 0 ? devicePixelRatio : 1.0;
    const auto holds = [&](const CaptureDisplay& display) {
        return QRectF(0, 0, display.nativeGeometry.width() / dpr, display.nativeGeometry.height() / dpr)
            .contains(region);
    };
    // The region is relative to the display it was chosen on: that one's corner is its origin,
    // also where the region reaches past the display's edge.
    const CaptureDisplay* chosen = nullptr;
    for (const CaptureDisplay& display : displays) {
        if (!preferredDisplay.isEmpty() && display.name == preferredDisplay) {
            chosen = &display;
        }
    }
    for (const CaptureDisplay& display : displays) {
        if (!chosen && holds(display)) {
            chosen = &display;
        }
    }
    if (!chosen) {
        chosen = &displays.first();
    }

    // Whole points, as the output is a multiple of the truncated size.
    const int widthPoints = static_cast<int>(std::trunc(region.width()));
    const int heightPoints = static_cast<int>(std::trunc(region.height()));
    CapturePlan plan;
    plan.display = *chosen;
    plan.outputSize = QSize(outputScale * widthPoints, outputScale * heightPoints);
    const QPoint origin =
        chosen->nativeGeometry.topLeft() + QPoint(static_cast<int>(std::lround(region.x() * dpr)),
                                                  static_cast<int>(std::lround(region.y() * dpr)));
    QSize grabbed;
    if (dpr == 1.0 && outputScale == 2) {
        // A pixel a point: each grabbed pixel becomes 2 × 2, exactly.
        plan.scale = 2;
        grabbed = plan.outputSize / 2;
    } else if (dpr == double(outputScale)) {
        plan.scale = 1;
        grabbed = plan.outputSize;
    } else {
        // Any other ratio: the native pixels are resampled to the output size.
        plan.scale = 1;
        grabbed = QSize(static_cast<int>(std::lround(widthPoints * dpr)),
                        static_cast<int>(std::lround(heightPoints * dpr)));
    }
    plan.nativeRect = QRect(origin, grabbed);
    return plan;
}

std::chrono::nanoseconds slotTime(long long slot, int frameRate)
{
    // Computed from the slot number each time, so rounding never accumulates.
    return std::chrono::nanoseconds(slot * 1'000'000'000LL / frameRate);
}

long long latestSlotDue(std::chrono::nanoseconds elapsed, int frameRate)
{
    if (elapsed.count() <= 0) {
        return 0;
    }
    // The estimate may be one off either way; slotTime has the last word.
    long long slot = elapsed.count() * frameRate / 1'000'000'000LL;
    while (slot > 0 && slotTime(slot, frameRate) > elapsed) {
        --slot;
    }
    while (slotTime(slot + 1, frameRate) <= elapsed) {
        ++slot;
    }
    return slot;
}

long long slotsBefore(std::chrono::nanoseconds elapsed, int frameRate)
{
    if (elapsed.count() <= 0) {
        return 0;
    }
    const long long latest = latestSlotDue(elapsed, frameRate);
    return slotTime(latest, frameRate) < elapsed ? latest + 1 : latest;
}

namespace {
// The colour of a tile all of one colour (alpha bits ignored).
std::optional<QRgb> flatColour(const QImage& image, const QRect& tile)
{
    const QRgb first = image.pixel(tile.topLeft()) & RGB_MASK;
    for (int y = tile.top(); y <= tile.bottom(); ++y) {
        const auto* line = reinterpret_cast<const QRgb*>(image.constScanLine(y));
        for (int x = tile.left(); x <= tile.right(); ++x) {
            if ((line[x] & RGB_MASK) != first) {
                return std::nullopt;
            }
        }
    }
    return first;
}
} // namespace

bool showsUnpaintedWindows(const QImage& frame, const QImage& before)
{
    if (frame.size() != before.size() || frame.isNull()) {
        return false;
    }
    const QImage now = frame.convertToFormat(QImage::Format_RGB32);
    const QImage then = before.convertToFormat(QImage::Format_RGB32);
    constexpr int side = 16;
    int tiles = 0;
    int blank = 0;
    for (int y = 0; y < now.height(); y += side) {
        for (int x = 0; x < now.width(); x += side) {
            const QRect tile = QRect(x, y, side, side) & now.rect();
            ++tiles;
            if (const auto colour = flatColour(now, tile); colour && flatColour(then, tile) != colour) {
                ++blank;
            }
        }
    }
    // A flat shape that moved (an animation) is not a window's background.
    return blank * 10 >= tiles;
}

} // namespace vantalo
