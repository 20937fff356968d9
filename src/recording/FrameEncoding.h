#pragma once

#include "Frame.h"
#include "GifWriter.h"

namespace vantalo {

struct QuantizerSettings
{
    // Chosen with bench/gif: dithering lowers SSIM and PSNR on every clip and makes files several
    // times larger, and speeds above 8 give the same palettes.
    int speed = 8;          // libimagequant: 1 (best) to 10 (fastest)
    int minQuality = 0;     // 0..100
    int maxQuality = 100;   // 0..100
    float dithering = 0.0f; // 0 (none) to 1 (full)
    bool differencing = true;
};

// Where one frame's encoding time went, in nanoseconds of the thread that encoded it.
struct EncodeStageTimes
{
    qint64 differencingNs = 0; // finding what changed and cutting it out
    qint64 quantisingNs = 0;   // the palette and the indices
    qint64 doublingNs = 0;     // indices scaled up to the output size
    qint64 lzwNs = 0;          // compression
    qint64 reducedFrames = 0;  // frames of more than 256 colours, given a palette by libimagequant

    EncodeStageTimes& operator+=(const EncodeStageTimes& other)
    {
        differencingNs += other.differencingNs;
        quantisingNs += other.quantisingNs;
        doublingNs += other.doublingNs;
        lzwNs += other.lzwNs;
        reducedFrames += other.reducedFrames;
        return *this;
    }
};

// Turns one source frame into its GIF frame. Where `previous` is the source frame before it (of
// the same size), pixels that did not change are left transparent and the frame is cropped to
// the rectangle that did; a frame with nothing changed becomes one transparent pixel. A frame of
// at most 256 colours keeps them exactly; others get a palette of their own from libimagequant,
// with its dithering. A doubled frame is worked on at its captured size and its indices doubled.
// Depends on nothing but its arguments, so frames can be encoded in parallel.
EncodedFrame encodeFrame(const Frame& current, const Frame* previous, const QuantizerSettings& settings,
                         EncodeStageTimes* times = nullptr);
// Encodes frames one after another against the picture a decoder shows after the frames before,
// for lossy compression: each pixel is shown within `lossyDistanceSquared(level)` of its colour
// (beyond what the palette costs), and a pixel already shown close enough is left transparent, so
// the error of one frame never adds to the next one's.
class CanvasEncoder
{
public:
    CanvasEncoder(QuantizerSettings settings, int lossyLevel);
    EncodedFrame encode(const Frame& frame);

private:
    QuantizerSettings m_settings;
    int m_limit;
    QImage m_canvas;          // as shown after the last frame, at the captured size
    QImage m_previous;        // the last frame's own pixels
    bool m_quantised = false; // the last frame had more than 256 colours
    int m_scale = 1;
};

// The frame of a picture identical to the one before: one transparent pixel.
EncodedFrame unchangedFrame();

} // namespace vantalo
