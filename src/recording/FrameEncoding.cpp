#include "FrameEncoding.h"

#include <QElapsedTimer>
#include <QHash>

#include <libimagequant.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <memory>
#include <numeric>
#include <optional>
#include <utility>
#include <vector>

namespace vantalo {

namespace {

struct LiqDeleter
{
    void operator()(liq_attr* p) const { liq_attr_destroy(p); }
    void operator()(liq_image* p) const { liq_image_destroy(p); }
    void operator()(liq_result* p) const { liq_result_destroy(p); }
};
template<typename T> using LiqPtr = std::unique_ptr<T, LiqDeleter>;

constexpr QRgb kTransparentKey = 0x00000000; // never an opaque colour: those have alpha 0xff
constexpr size_t kMaxRemappedColours = 20000;
// Up to this many colours, a frame's palette is refined (see indexArea).
constexpr size_t kRefinedColours = 4096;

QImage opaquePixels(const QImage& image)
{
    return image.format() == QImage::Format_RGB32 ? image : image.convertToFormat(QImage::Format_RGB32);
}

// The rectangle (in captured pixels) where the two images differ; empty when they are the same.
QRect changedRect(const QImage& current, const QImage& previous)
{
    int top = -1;
    int bottom = -1;
    int left = current.width();
    int right = -1;
    for (int y = 0; y < current.height(); ++y) {
        const auto* a = reinterpret_cast<const QRgb*>(current.constScanLine(y));
        const auto* b = reinterpret_cast<const QRgb*>(previous.constScanLine(y));
        if (std::memcmp(a, b, size_t(current.width()) * 4) == 0) {
            continue;
        }
        if (top < 0) {
            top = y;
        }
        bottom = y;
        int x = 0;
        while (x < left && a[x] == b[x]) {
            ++x;
        }
        left = std::min(left, x);
        int r = current.width() - 1;
        while (r > right && a[r] == b[r]) {
            --r;
        }
        right = std::max(right, r);
    }
    if (top < 0) {
        return {};
    }
    return QRect(QPoint(left, top), QPoint(right, bottom));
}

struct Indexed
{
    QList<QRgb> palette;
    int transparentIndex = -1;
    std::vector<quint8> indices; // at captured size
    bool quantised = false;      // more than 256 colours, brought down to a palette
};

// The colours of the area (transparent pixels as kTransparentKey), if there are at most 256.
std::optional<Indexed> exactPalette(const std::vector<QRgb>& pixels)
{
    Indexed out;
    QHash<QRgb, quint8> lookup;
    lookup.reserve(257);
    out.indices.resize(pixels.size());
    QRgb last = ~pixels.front();
    quint8 lastIndex = 0;
    for (size_t i = 0; i < pixels.size(); ++i) {
        const QRgb colour = pixels[i];
        if (colour != last) {
            auto it = lookup.constFind(colour);
            if (it == lookup.cend()) {
                if (out.palette.size() == 256) {
                    return std::nullopt;
                }
                it = lookup.insert(colour, quint8(out.palette.size()));
                if (colour == kTransparentKey) {
                    out.transparentIndex = int(out.palette.size());
                }
                out.palette.append(colour);
            }
            last = colour;
            lastIndex = it.value();
        }
        out.indices[i] = lastIndex;
    }
    return out;
}

// A value for each distinct colour of a frame, in a fixed open-addressing table of 65,536 slots:
// screen content holds a few thousand colours, and callers stop well before the table fills.
template<typename Value> class ColourSlots
{
public:
    // The slot of `colour`'s value, and whether the colour is new (its value then `Value{}`).
    std::pair<Value*, bool> find(QRgb colour)
    {
        size_t slot = (colour * 2654435761u) >> 16;
        while (m_slots[slot].used && m_slots[slot].colour != colour) {
            slot = (slot + 1) & (kSlots - 1);
        }
        Slot& found = m_slots[slot];
        const bool added = !found.used;
        found.used = true;
        found.colour = colour;
        return {&found.value, added};
    }

private:
    struct Slot
    {
        QRgb colour = 0;
        bool used = false;
        Value value{};
    };
    static constexpr size_t kSlots = 1 << 16;
    std::vector<Slot> m_slots = std::vector<Slot>(kSlots);
};

// Whether the pixels hold fewer than `limit` distinct colours (`limit` well under 65536).
bool fewerColoursThan(const std::vector<QRgb>& pixels, size_t limit)
{
    ColourSlots<bool> seen;
    size_t colours = 0;
    QRgb last = kTransparentKey;
    for (const QRgb colour : pixels) {
        if (colour == last || colour == kTransparentKey) {
            continue;
        }
        last = colour;
        if (seen.find(colour).second && ++colours >= limit) {
            return false;
        }
    }
    return true;
}

// Each pixel's nearest opaque palette entry, remembered per colour: screen content repeats a few
// thousand colours over millions of pixels, so this is several times faster than libimagequant's
// own remapping. Gives up (nothing) past `maxColours` distinct colours, as in a photograph, where
// libimagequant's search tree does better. Transparent pixels are left at 0, and no pixel takes
// the entry `transparentIndex` (-1: none).
std::optional<std::vector<quint8>> remapByColour(const std::vector<QRgb>& pixels, const liq_palette& palette,
                                                 int transparentIndex, size_t maxColours)
{
    ColourSlots<quint8> nearest;
    size_t colours = 0;
    std::vector<quint8> indices(pixels.size(), 0);
    QRgb last = kTransparentKey;
    quint8 lastIndex = 0;
    for (size_t i = 0; i < pixels.size(); ++i) {
        const QRgb colour = pixels[i];
        if (colour == kTransparentKey) {
            continue;
        }
        if (colour != last) {
            const auto [index, added] = nearest.find(colour);
            if (added) {
                if (++colours > maxColours) {
                    return std::nullopt;
                }
                int best = 0;
                int bestDistance = std::numeric_limits<int>::max();
                for (unsigned k = 0; k < palette.count; ++k) {
                    const liq_color& c = palette.entries[k];
                    if (int(k) == transparentIndex) {
                        continue;
                    }
                    const int dr = int(c.r) - qRed(colour);
                    const int dg = int(c.g) - qGreen(colour);
                    const int db = int(c.b) - qBlue(colour);
                    const int distance = dr * dr + dg * dg + db * db;
                    if (distance < bestDistance) {
                        bestDistance = distance;
                        best = int(k);
                    }
                }
                *index = quint8(best);
            }
            last = colour;
            lastIndex = *index;
        }
        indices[i] = lastIndex;
    }
    return indices;
}

Indexed quantize(const std::vector<QRgb>& pixels, int width, int height, bool hasTransparency,
                 const QuantizerSettings& settings)
{
    // libimagequant reads bytes R, G, B, A.
    std::vector<quint8> rgba(pixels.size() * 4);
    for (size_t i = 0; i < pixels.size(); ++i) {
        const QRgb c = pixels[i];
        rgba[4 * i] = quint8(qRed(c));
        rgba[4 * i + 1] = quint8(qGreen(c));
        rgba[4 * i + 2] = quint8(qBlue(c));
        rgba[4 * i + 3] = quint8(qAlpha(c));
    }
    LiqPtr<liq_attr> attr(liq_attr_create());
    liq_set_speed(attr.get(), settings.speed);
    liq_set_quality(attr.get(), settings.minQuality, settings.maxQuality);
    liq_set_max_colors(attr.get(), 256);
    LiqPtr<liq_image> image(liq_image_create_rgba(attr.get(), rgba.data(), width, height, 0));
    liq_result* rawResult = nullptr;
    Indexed out;
    out.indices.assign(pixels.size(), 0);
    if (!image || liq_image_quantize(image.get(), attr.get(), &rawResult) != LIQ_OK) {
        out.palette = {qRgb(0, 0, 0)};
        return out;
    }
    LiqPtr<liq_result> result(rawResult);
    liq_set_dithering_level(result.get(), settings.dithering);
    const liq_palette* palette = liq_get_palette(result.get());
    // The entry of the unchanged pixels: the least opaque one.
    const auto leastOpaque = [](const liq_palette& entries) {
        int index = -1;
        int alpha = 256;
        for (unsigned i = 0; i < entries.count; ++i) {
            if (entries.entries[i].a < alpha) {
                alpha = entries.entries[i].a;
                index = int(i);
            }
        }
        return index;
    };
    int transparentIndex = hasTransparency ? leastOpaque(*palette) : -1;
    // Without dithering every pixel just takes its nearest colour, which a cache per colour finds
    // fastest for screen content.
    auto remapped = settings.dithering == 0.0f
                        ? remapByColour(pixels, *palette, transparentIndex, kMaxRemappedColours)
                        : std::nullopt;
    if (remapped) {
        out.indices = std::move(*remapped);
    } else {
        // libimagequant's remapping may refine the palette.
        liq_write_remapped_image(result.get(), image.get(), out.indices.data(), out.indices.size());
        palette = liq_get_palette(result.get());
        transparentIndex = hasTransparency ? leastOpaque(*palette) : -1;
    }
    for (unsigned i = 0; i < palette->count; ++i) {
        const liq_color& c = palette->entries[i];
        out.palette.append(qRgb(c.r, c.g, c.b));
    }
    if (hasTransparency) {
        out.transparentIndex = transparentIndex;
        // Unchanged pixels show the frame below, whatever the dithering made of their neighbours.
        for (size_t i = 0; i < pixels.size(); ++i) {
            if (pixels[i] == kTransparentKey) {
                out.indices[i] = quint8(out.transparentIndex);
            }
        }
    }
    return out;
}

// Each pixel's index becomes scale × scale of them.
// The area's pixels (transparent ones as kTransparentKey) as indices into a palette: their own
// colours where there are at most 256, else a quantised palette; never fewer than the two entries
// a GIF table needs.
Indexed indexArea(const std::vector<QRgb>& pixels, QSize area, bool hasTransparency,
                  const QuantizerSettings& settings)
{
    Indexed indexed;
    if (auto exact = exactPalette(pixels)) {
        indexed = std::move(*exact);
    } else {
        // Screen content of a few hundred colours (a page with a picture on it) is mostly a few
        // flat colours: libimagequant's refinement below speed 8 (k-means) makes those exact, so
        // the frame comes out almost as it was for 2 % more bytes. A photograph or a video of
        // thousands of colours gains nothing from it, and would take twice as long.
        QuantizerSettings tuned = settings;
        if (tuned.speed >= 8 && fewerColoursThan(pixels, kRefinedColours)) {
            tuned.speed = 7;
        }
        indexed = quantize(pixels, area.width(), area.height(), hasTransparency, tuned);
        indexed.quantised = true;
    }
    if (indexed.palette.size() < 2) {
        indexed.palette.append(qRgb(0, 0, 0));
    }
    return indexed;
}

// Lossy: each colour of the palette stands in for the others within `limit` of it, the most used
// first, so a frame of anti-aliased shades needs a few entries where it had a hundred (a smaller
// table, shorter codes and longer runs). Every pixel stays within `limit` of its own colour.
void mergeCloseColours(Indexed& indexed, int limit)
{
    const auto size = indexed.palette.size();
    std::vector<size_t> uses(static_cast<size_t>(size), 0);
    for (const quint8 index : indexed.indices) {
        ++uses[index];
    }
    std::vector<int> order(static_cast<size_t>(size));
    std::iota(order.begin(), order.end(), 0);
    std::stable_sort(order.begin(), order.end(),
                     [&uses](int a, int b) { return uses[size_t(a)] > uses[size_t(b)]; });
    std::array<quint8, 256> into{};
    QList<QRgb> kept;
    int transparent = -1;
    for (const int index : order) {
        if (uses[size_t(index)] == 0 && index != indexed.transparentIndex) {
            continue;
        }
        const QRgb colour = indexed.palette[index];
        int nearest = -1;
        int nearestDistance = limit + 1;
        if (index != indexed.transparentIndex) {
            for (qsizetype k = 0; k < kept.size(); ++k) {
                if (int(k) == transparent) {
                    continue;
                }
                const int distance = perceptualDistanceSquared(kept[k], colour);
                if (distance < nearestDistance) {
                    nearest = int(k);
                    nearestDistance = distance;
                }
            }
        }
        if (nearest < 0) {
            nearest = int(kept.size());
            kept.append(colour);
            if (index == indexed.transparentIndex) {
                transparent = nearest;
            }
        }
        into[size_t(index)] = quint8(nearest);
    }
    for (quint8& index : indexed.indices) {
        index = into[index];
    }
    while (kept.size() < 2) {
        kept.append(qRgb(0, 0, 0));
    }
    indexed.palette = std::move(kept);
    indexed.transparentIndex = transparent;
}

std::vector<quint8> scaledIndices(const std::vector<quint8>& indices, int width, int height, int scale)
{
    const size_t outWidth = size_t(width) * size_t(scale);
    std::vector<quint8> out(outWidth * size_t(height) * size_t(scale));
    for (int y = 0; y < height; ++y) {
        quint8* row = out.data() + size_t(y) * size_t(scale) * outWidth;
        const quint8* in = indices.data() + size_t(y) * size_t(width);
        for (int x = 0; x < width; ++x) {
            std::fill_n(row + size_t(x) * size_t(scale), scale, in[x]);
        }
        for (int copy = 1; copy < scale; ++copy) {
            std::copy_n(row, outWidth, row + size_t(copy) * outWidth);
        }
    }
    return out;
}

} // namespace

CanvasEncoder::CanvasEncoder(QuantizerSettings settings, int lossyLevel)
    : m_settings(settings), m_limit(lossyDistanceSquared(lossyLevel))
{
}

EncodedFrame CanvasEncoder::encode(const Frame& frame)
{
    // The work is done at the captured size; a doubled frame's chosen indices are doubled last, so
    // both rows of a pair stay alike and compress as well as losslessly doubled ones.
    const QImage source = opaquePixels(frame.pixels);
    const int scale = std::max(1, frame.scale);
    const bool first = m_canvas.size() != source.size() || m_scale != scale;
    if (first) {
        m_canvas = QImage(source.size(), QImage::Format_RGB32);
        m_scale = scale;
    }
    // The pixels shown too far from their colour must be sent, and the frame covers them; the
    // others are left transparent (the coder may still write a colour close enough there). A
    // pixel whose colour has not changed since the last frame keeps what is shown: it was as
    // close to that same colour then (a quantised frame's pixels stay as their palette showed them).
    const int width = source.width();
    const int height = source.height();
    std::vector<quint8> send(size_t(width) * size_t(height), first ? 1 : 0);
    QRect area = source.rect();
    // Content of more than 256 colours (a photograph, a gradient) changes a little everywhere, and
    // its palette is chosen anew each frame: there only unchanged pixels are left, and each frame is
    // compressed losslessly (lossy strings only made it larger and blotchy).
    if (!first) {
        int top = height, bottom = -1, left = width, right = -1;
        for (int y = 0; y < height; ++y) {
            const auto* row = reinterpret_cast<const QRgb*>(source.constScanLine(y));
            const auto* shown = reinterpret_cast<const QRgb*>(m_canvas.constScanLine(y));
            const auto* before = reinterpret_cast<const QRgb*>(m_previous.constScanLine(y));
            quint8* line = send.data() + size_t(y) * size_t(width);
            for (int x = 0; x < width; ++x) {
                const QRgb colour = row[x] | 0xff000000;
                if ((before[x] | 0xff000000) == colour ||
                    (!m_quantised && perceptualDistanceSquared(shown[x], colour) <= m_limit)) {
                    continue;
                }
                line[x] = 1;
                top = std::min(top, y);
                bottom = std::max(bottom, y);
                left = std::min(left, x);
                right = std::max(right, x);
            }
        }
        m_previous = source;
        if (bottom < 0) {
            return unchangedFrame();
        }
        area = QRect(QPoint(left, top), QPoint(right, bottom));
    }
    m_previous = source;

    const size_t count = size_t(area.width()) * size_t(area.height());
    std::vector<QRgb> pixels(count);
    bool hasTransparency = false;
    for (int y = 0; y < area.height(); ++y) {
        const auto* row = reinterpret_cast<const QRgb*>(source.constScanLine(area.y() + y)) + area.x();
        const quint8* line = send.data() + size_t(area.y() + y) * size_t(width) + size_t(area.x());
        QRgb* out = pixels.data() + size_t(y) * size_t(area.width());
        for (int x = 0; x < area.width(); ++x) {
            if (line[x] != 0) {
                out[x] = row[x] | 0xff000000;
            } else {
                out[x] = kTransparentKey;
                hasTransparency = true;
            }
        }
    }
    Indexed indexed = indexArea(pixels, area.size(), hasTransparency, m_settings);
    m_quantised = indexed.quantised;

    // Each pixel: the index it would take losslessly, the colour that stands for, and whether what
    // is shown there now is close enough to keep.
    std::vector<QRgb> target(count);
    std::vector<quint8> clearOk(count);
    for (int y = 0; y < area.height(); ++y) {
        const auto* row = reinterpret_cast<const QRgb*>(source.constScanLine(area.y() + y)) + area.x();
        const auto* shown = reinterpret_cast<const QRgb*>(m_canvas.constScanLine(area.y() + y)) + area.x();
        for (int x = 0; x < area.width(); ++x) {
            const size_t at = size_t(y) * size_t(area.width()) + size_t(x);
            const quint8 index = indexed.indices[at];
            if (int(index) == indexed.transparentIndex) {
                target[at] = row[x] | 0xff000000;
                clearOk[at] = 1;
            } else {
                target[at] = indexed.palette[index] | 0xff000000;
                clearOk[at] = !first && indexed.transparentIndex >= 0 &&
                              perceptualDistanceSquared(shown[x], target[at]) <= m_limit;
            }
        }
    }

    if (!m_quantised && m_limit > 0) {
        mergeCloseColours(indexed, m_limit);
    }

    EncodedFrame out;
    out.rect = QRect(area.topLeft() * scale, area.size() * scale);
    out.palette = indexed.palette;
    out.transparentIndex = indexed.transparentIndex;
    out.minCodeSize = std::max(2, colorTableBits(indexed.palette.size()));
    std::vector<quint8> written;
    out.compressed =
        lzwCompressLossy(LossyPixels{indexed.indices, target, clearOk, area.width(), scale}, out.palette,
                         out.transparentIndex, out.minCodeSize, m_quantised ? 0 : m_limit, written);
    // A longer match is not always a smaller file: the lossless stream is kept where it is smaller.
    std::vector<quint8> exact = scaledIndices(indexed.indices, area.width(), area.height(), scale);
    if (QByteArray lossless = lzwCompress(exact, out.minCodeSize); lossless.size() <= out.compressed.size()) {
        out.compressed = std::move(lossless);
        written = std::move(exact);
    }
    const size_t outWidth = size_t(area.width()) * size_t(scale);
    for (int y = 0; y < area.height(); ++y) {
        auto* shown = reinterpret_cast<QRgb*>(m_canvas.scanLine(area.y() + y)) + area.x();
        const quint8* line = written.data() + size_t(y) * size_t(scale) * outWidth;
        for (int x = 0; x < area.width(); ++x) {
            const quint8 index = line[size_t(x) * size_t(scale)];
            if (int(index) != out.transparentIndex) {
                shown[x] = out.palette[index] | 0xff000000;
            }
        }
    }
    return out;
}

EncodedFrame unchangedFrame()
{
    // One transparent pixel keeps the frame and its delay.
    EncodedFrame frame;
    frame.rect = QRect(0, 0, 1, 1);
    frame.palette = {qRgb(0, 0, 0), qRgb(0, 0, 0)};
    frame.transparentIndex = 0;
    frame.minCodeSize = 2;
    const quint8 index = 0;
    frame.compressed = lzwCompress(std::span(&index, 1), frame.minCodeSize);
    return frame;
}

EncodedFrame encodeFrame(const Frame& current, const Frame* previous, const QuantizerSettings& settings,
                         EncodeStageTimes* times)
{
    QElapsedTimer stage;
    stage.start();
    // Adds the time since the last mark to one stage.
    const auto mark = [&stage, times](qint64 EncodeStageTimes::*field) {
        if (times) {
            times->*field += stage.nsecsElapsed();
        }
        stage.restart();
    };
    const QImage source = opaquePixels(current.pixels);
    const int scale = std::max(1, current.scale);
    QImage before;
    const bool differenced = settings.differencing && previous && previous->scale == current.scale &&
                             previous->pixels.size() == current.pixels.size();
    if (differenced) {
        before = opaquePixels(previous->pixels);
    }

    QRect area = source.rect();
    if (differenced) {
        area = changedRect(source, before);
        if (area.isEmpty()) {
            return unchangedFrame();
        }
    }

    // The area's pixels, unchanged ones marked transparent.
    std::vector<QRgb> pixels(size_t(area.width()) * size_t(area.height()));
    bool hasTransparency = false;
    for (int y = 0; y < area.height(); ++y) {
        const auto* row = reinterpret_cast<const QRgb*>(source.constScanLine(area.y() + y)) + area.x();
        QRgb* out = pixels.data() + size_t(y) * size_t(area.width());
        if (!differenced) {
            std::copy(row, row + area.width(), out);
            continue;
        }
        const auto* old = reinterpret_cast<const QRgb*>(before.constScanLine(area.y() + y)) + area.x();
        for (int x = 0; x < area.width(); ++x) {
            if (row[x] == old[x]) {
                out[x] = kTransparentKey;
                hasTransparency = true;
            } else {
                out[x] = row[x] | 0xff000000;
            }
        }
    }
    if (!differenced) {
        for (QRgb& p : pixels) {
            p |= 0xff000000;
        }
    }

    mark(&EncodeStageTimes::differencingNs);
    const Indexed indexed = indexArea(pixels, area.size(), hasTransparency, settings);
    if (times && indexed.quantised) {
        ++times->reducedFrames;
    }

    mark(&EncodeStageTimes::quantisingNs);
    EncodedFrame frame;
    frame.rect = QRect(area.topLeft() * scale, area.size() * scale);
    frame.palette = indexed.palette;
    frame.transparentIndex = indexed.transparentIndex;
    frame.minCodeSize = std::max(2, colorTableBits(indexed.palette.size()));
    if (scale == 1) {
        frame.compressed = lzwCompress(indexed.indices, frame.minCodeSize);
        mark(&EncodeStageTimes::lzwNs);
        return frame;
    }
    const std::vector<quint8> doubled = scaledIndices(indexed.indices, area.width(), area.height(), scale);
    mark(&EncodeStageTimes::doublingNs);
    frame.compressed = lzwCompress(doubled, frame.minCodeSize);
    mark(&EncodeStageTimes::lzwNs);
    return frame;
}

} // namespace vantalo
