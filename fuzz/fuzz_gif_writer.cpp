// Frames of any size, palette and content, written by the GIF writer, read back code by code by a
// strict reader and by Qt: both see exactly the pixels and delays written; the file is complete, and any
// shorter prefix of it is not. The same frames compressed lossily, at a fuzzed level and scale, read
// back as the indices the coder says it wrote, each within the level's distance of its target.
// Frames often have the colours of the frames before, so the writer's shared table is read too.
#include "Check.h"
#include "recording/GifWriter.h"
#include "support/GifReaders.h"

#include <algorithm>
#include <cstdint>

using namespace vantalo;

namespace {

class Bytes
{
public:
    Bytes(const std::uint8_t* data, std::size_t size) : m_data(data), m_size(size) {}
    quint8 next() { return m_size == 0 ? 0 : m_data[m_at++ % m_size]; }

private:
    const std::uint8_t* m_data;
    std::size_t m_size;
    std::size_t m_at = 0;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 4) {
        return 0;
    }
    Bytes in(data, size);
    const int width = 1 + in.next() % 48;
    const int height = 1 + in.next() % 48;
    const int frameCount = 1 + in.next() % 3;

    QList<EncodedFrame> frames;
    QList<int> delays;
    QImage canvas(width, height, QImage::Format_ARGB32);
    canvas.fill(0);
    QList<QImage> expected;
    for (int k = 0; k < frameCount; ++k) {
        EncodedFrame frame;
        const int paletteSize = 1 + in.next();
        // Colours of their own, or those of the frames before (which the writer may then share).
        const int shade = (in.next() & 1) != 0 ? k * 11 : 0;
        for (int i = 0; i < paletteSize; ++i) {
            frame.palette.append(qRgb(i, 255 - i, (i * 37 + shade) & 0xff));
        }
        if (k == 0) {
            frame.rect = QRect(0, 0, width, height);
        } else {
            const int x = in.next() % width;
            const int y = in.next() % height;
            frame.rect = QRect(x, y, 1 + in.next() % (width - x), 1 + in.next() % (height - y));
        }
        const quint8 transparent = in.next();
        frame.transparentIndex = (transparent & 1) ? transparent % paletteSize : -1;
        frame.minCodeSize = std::max(2, colorTableBits(paletteSize));
        std::vector<quint8> indices(size_t(frame.rect.width()) * size_t(frame.rect.height()));
        // Runs of one index as often as noise, so the table fills with long strings too.
        for (size_t p = 0; p < indices.size(); ++p) {
            const quint8 b = in.next();
            indices[p] = (b & 0x80) && p > 0 ? indices[p - 1] : quint8(b % paletteSize);
        }
        for (int y = 0; y < frame.rect.height(); ++y) {
            for (int x = 0; x < frame.rect.width(); ++x) {
                const int index = indices[size_t(y) * size_t(frame.rect.width()) + size_t(x)];
                if (index != frame.transparentIndex) {
                    canvas.setPixel(frame.rect.x() + x, frame.rect.y() + y, frame.palette[index]);
                }
            }
        }
        expected.append(canvas.copy());
        frame.compressed = lzwCompress(indices, frame.minCodeSize);
        frames.append(frame);
        delays.append(in.next() * 7);
    }

    // Lossy: each frame on its own, every pixel's target its own colour; the transparent index
    // may stand for a pixel where the fuzz says the picture below is close enough.
    const int limit = lossyDistanceSquared(in.next() % 101);
    const int scale = 1 + in.next() % 2;
    for (const EncodedFrame& frame : frames) {
        const int w = frame.rect.width();
        const int h = frame.rect.height();
        std::vector<quint8> indices(size_t(w) * size_t(h));
        std::vector<QRgb> target(indices.size());
        std::vector<quint8> clearOk(indices.size());
        for (size_t p = 0; p < indices.size(); ++p) {
            const quint8 b = in.next();
            indices[p] = (b & 0x80) && p > 0 ? indices[p - 1] : quint8(b % frame.palette.size());
            target[p] = frame.palette[indices[p]];
            clearOk[p] = (b & 0x40) != 0;
        }
        std::vector<quint8> written;
        EncodedFrame lossy = frame;
        lossy.rect = QRect(0, 0, w * scale, h * scale);
        lossy.compressed = lzwCompressLossy(LossyPixels{indices, target, clearOk, w, scale}, frame.palette,
                                            frame.transparentIndex, frame.minCodeSize, limit, written);
        const auto read = testing::readStrictly(assembleGif(lossy.rect.size(), {lossy}, {10}));
        FUZZ_CHECK(read.has_value());
        FUZZ_CHECK(written.size() == size_t(w * scale) * size_t(h * scale));
        for (int y = 0; y < h * scale; ++y) {
            for (int x = 0; x < w * scale; ++x) {
                const quint8 index = written[size_t(y) * size_t(w * scale) + size_t(x)];
                const size_t p = size_t(y / scale) * size_t(w) + size_t(x / scale);
                FUZZ_CHECK(index ==
                           written[size_t(y - y % scale) * size_t(w * scale) + size_t(x - x % scale)]);
                if (index == frame.transparentIndex) {
                    FUZZ_CHECK(clearOk[p] || indices[p] == index);
                    FUZZ_CHECK(read->frames.front().pixel(x, y) == 0);
                } else {
                    FUZZ_CHECK(perceptualDistanceSquared(frame.palette[index], target[p]) <= limit);
                    FUZZ_CHECK(read->frames.front().pixel(x, y) == (frame.palette[index] | 0xff000000));
                }
            }
        }
    }

    const QByteArray gif = assembleGif(QSize(width, height), frames, delays);
    const auto read = testing::readWithEveryReader(gif);
    if (!read) {
        std::fprintf(stderr, "%s\n", qPrintable(read.error()));
    }
    FUZZ_CHECK(read.has_value());
    FUZZ_CHECK(read->frames == expected);
    FUZZ_CHECK(read->delays == delays);
    FUZZ_CHECK(isCompleteGif(gif));
    FUZZ_CHECK(!isCompleteGif(gif.chopped(1 + in.next() % gif.size())));
    return 0;
}
