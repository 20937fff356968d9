#pragma once

#include "GifRecoder.h"
#include "common/Failure.h"

#include <QByteArray>
#include <QImage>
#include <QList>
#include <QSize>

#include <algorithm>
#include <chrono>
#include <expected>
#include <optional>
#include <stop_token>

namespace vantalo {

// A GIF's frames as the trim window shows them: each frame's delay, whether it changed the
// picture, and a small picture of it (JPEG, so a long GIF stays a few megabytes).
struct GifTimeline
{
    QSize size;           // the GIF's own
    QList<int> delays;    // hundredths of a second
    QList<qint64> starts; // when each frame starts, from the first, and the end after the last
    QList<bool> changed;  // whether the frame changed any pixel of the one before
    // The colour of a frame whose picture is all one colour (a blank one), or nothing.
    QList<std::optional<QRgb>> flat;
    QList<QByteArray> previews;

    int frameCount() const { return int(delays.size()); }
    // When frame `index` starts, in hundredths from the first; `frameCount()` gives the total.
    qint64 startOf(int index) const { return starts.value(std::clamp(index, 0, frameCount()), 0); }
    QImage preview(int index) const;

    // The frames worth keeping: a still start and a still end (the same picture for longer than
    // `still` hundredths) are left out but for their last and first frame, and so are blank frames
    // at the start (a window that had not painted yet) when no later frame is blank like them.
    FrameSpan suggestedSpan(int still = 50) const;
};

// Reads the GIF at `path`, each preview fitted into `previewBox`.
std::expected<GifTimeline, Failure> readGifTimeline(const QString& path, QSize previewBox,
                                                    std::stop_token stop = {});

// About how large `recodeGif` would make the GIF: exact when the whole encode takes less than
// `time`, else what was written by then scaled to the whole.
struct SizeEstimate
{
    qint64 bytes = 0;
    bool exact = false;
};
std::expected<SizeEstimate, Failure> estimateGifBytes(const QString& source, const OutputSettings& settings,
                                                      FrameSpan frames, std::chrono::milliseconds time,
                                                      std::stop_token stop = {});

} // namespace vantalo
