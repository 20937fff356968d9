#pragma once

#include "Frame.h"
#include "common/Failure.h"

#include <QIODevice>
#include <QString>

#include <expected>
#include <functional>
#include <optional>
#include <stop_token>

namespace vantalo {

// How a GIF is written: the levers that trade quality for bytes. The defaults are the recorder's.
struct OutputSettings
{
    int scale = 2;      // 2: a pixel per pixel of the GIF read; 1: half that (for Vantalo's own
                        // GIFs, a pixel per point, exactly the pixels captured on a 1× display)
    int frameRate = 15; // the most frames a second kept
    int lossy = 0;      // 0 (lossless) to 100

    QString label() const; // "1×, 10 fps, lossy 40"
    friend bool operator==(const OutputSettings&, const OutputSettings&) = default;
};

// A picture as a GIF of `scale` holds it: at 2, as it is, kept at half its size and doubled where
// it is made of pixel doubles (as the recorder keeps a frame from a 1× screen); at 1, halved.
Frame frameAtScale(const QImage& picture, int scale);

// Fraction done, 0 to 1.
using RecodeProgress = std::function<void(double)>;

// The source's frames kept, by index: [first, end), the rest left out. The first kept frame is
// shown at 0, and the last keeps its own delay.
struct FrameSpan
{
    int first = 0;
    int end = -1; // -1: to the last frame

    bool whole() const { return first == 0 && end < 0; }
    friend bool operator==(const FrameSpan&, const FrameSpan&) = default;
};

// What a long encode is given besides its settings.
struct RecodeControl
{
    FrameSpan frames;
    RecodeProgress progress;
    // Each frame as it is encoded: how far through the source (as `progress`), and the bytes of the
    // output with that frame.
    std::function<void(double fraction, qint64 bytes)> encoded;
    // Asks the encode to give up: it then fails with `cancelledText`, and writes nothing.
    std::stop_token stop;
};
inline const QString cancelledText = QStringLiteral("Cancelled");

struct RecodeResult
{
    qint64 bytes = 0;
    int frames = 0;
    bool overLimit = false; // over the limit: stopped as soon as it was, or larger when written
};

// Reads the GIF at `source` a frame at a time and writes it to `output` with `settings`:
// - scale 1 halves each picture (exactly, where it is made of pixel doubles; otherwise averaging
//   each 2 × 2 block);
// - a frame rate below the source's keeps the frames shown at each 1/rate s; a frame left out,
//   and any frame that changes nothing, gives its time to the frame shown before it, so the
//   animation lasts exactly as long as the source;
// - a lossy level above 0 lets each pixel be shown a little off its colour, the error bounded
//   per pixel and never carried from frame to frame.
// The output is written once the last frame is encoded (the compressed frames are held until
// then), so that frames can share a colour table. With `byteLimit` ≥ 0 the encode stops, writing
// nothing, once the frames with their own tables come to more.
std::expected<RecodeResult, Failure> recodeGif(const QString& source, QIODevice& output,
                                               const OutputSettings& settings, qint64 byteLimit = -1,
                                               const RecodeControl& control = {});

// The same into the file `target`, which is replaced only once the whole GIF is written.
std::expected<RecodeResult, Failure> recodeGifFile(const QString& source, const QString& target,
                                                   const OutputSettings& settings,
                                                   const RecodeControl& control = {});

struct FitResult
{
    qint64 bytes = 0;
    OutputSettings settings;
    bool unchanged = false; // the source fitted already and was copied as it is
    int encodes = 0;        // whole encodes tried
};
struct FitFailure
{
    Failure failure;
    std::optional<qint64> smallest; // when nothing fits: the size of the smallest GIF made
};

// Writes `source` (its frames in `control.frames`) to `target` with the settings of best quality
// whose GIF is at most `budget` bytes. Fails, writing nothing, when even the smallest settings do
// not fit.
std::expected<FitResult, FitFailure> fitGif(const QString& source, qint64 budget, const QString& target,
                                            const RecodeControl& control = {});

// The sizes a GIF is fitted under, named after where each is needed ("Under 10 MB (GitHub,
// Discord)").
struct FitPreset
{
    QString label;
    qint64 bytes = 0;
};
const QList<FitPreset>& fitPresets();

// The settings `fitGif` tries, best first. A GIF of pixel doubles loses nothing at 1×, so for
// one no 2× step but the first costs more than that.
QList<OutputSettings> fitLadder(bool pixelDoubled);

} // namespace vantalo
