#include "GifReaders.h"

#include <gif_lib.h>
#include <stb/stb_image.h>

#include <array>
#include <cstring>
#include <memory>
#include <vector>

namespace vantalo::testing {

namespace {

// One frame drawn over the canvas as a viewer does: the transparent index lets the canvas show.
void drawFrame(QImage& canvas, const QRect& rect, const quint8* indices, const QList<QRgb>& palette,
               int transparentIndex)
{
    for (int y = 0; y < rect.height(); ++y) {
        for (int x = 0; x < rect.width(); ++x) {
            const int index = indices[y * rect.width() + x];
            if (index != transparentIndex && rect.x() + x < canvas.width() &&
                rect.y() + y < canvas.height()) {
                canvas.setPixel(rect.x() + x, rect.y() + y, palette.value(index, qRgb(0, 0, 0)));
            }
        }
    }
}

struct MemoryInput
{
    const QByteArray* bytes;
    qsizetype at = 0;
};

int readMemory(GifFileType* file, GifByteType* out, int length)
{
    auto* input = static_cast<MemoryInput*>(file->UserData);
    const int n = int(std::min<qsizetype>(length, input->bytes->size() - input->at));
    std::memcpy(out, input->bytes->constData() + input->at, size_t(n));
    input->at += n;
    return n;
}

} // namespace

std::expected<ReadGif, QString> readWithGiflib(const QByteArray& gif)
{
    MemoryInput input{&gif};
    int error = 0;
    std::unique_ptr<GifFileType, void (*)(GifFileType*)> file(
        DGifOpen(&input, readMemory, &error), [](GifFileType* f) { DGifCloseFile(f, nullptr); });
    if (!file) {
        return std::unexpected(QStringLiteral("giflib: ") + QString::fromUtf8(GifErrorString(error)));
    }
    if (DGifSlurp(file.get()) != GIF_OK) {
        return std::unexpected(QStringLiteral("giflib: ") + QString::fromUtf8(GifErrorString(file->Error)));
    }
    ReadGif out;
    QImage canvas(file->SWidth, file->SHeight, QImage::Format_ARGB32);
    canvas.fill(0);
    for (int i = 0; i < file->ImageCount; ++i) {
        const SavedImage& image = file->SavedImages[i];
        GraphicsControlBlock control{};
        control.TransparentColor = NO_TRANSPARENT_COLOR;
        DGifSavedExtensionToGCB(file.get(), i, &control);
        const ColorMapObject* map = image.ImageDesc.ColorMap ? image.ImageDesc.ColorMap : file->SColorMap;
        QList<QRgb> palette;
        for (int c = 0; map && c < map->ColorCount; ++c) {
            palette.append(qRgb(map->Colors[c].Red, map->Colors[c].Green, map->Colors[c].Blue));
        }
        const GifImageDesc& d = image.ImageDesc;
        drawFrame(canvas, QRect(d.Left, d.Top, d.Width, d.Height), image.RasterBits, palette,
                  control.TransparentColor);
        out.frames.append(canvas.copy());
        out.delays.append(control.DelayTime);
    }
    return out;
}

std::expected<ReadGif, QString> readWithStb(const QByteArray& gif)
{
    int* delaysMs = nullptr;
    int width = 0;
    int height = 0;
    int count = 0;
    int channels = 0;
    stbi_uc* pixels =
        stbi_load_gif_from_memory(reinterpret_cast<const stbi_uc*>(gif.constData()), int(gif.size()),
                                  &delaysMs, &width, &height, &count, &channels, 4);
    if (!pixels) {
        return std::unexpected(QStringLiteral("stb_image: ") + QString::fromUtf8(stbi_failure_reason()));
    }
    ReadGif out;
    for (int k = 0; k < count; ++k) {
        QImage frame(width, height, QImage::Format_ARGB32);
        const stbi_uc* p = pixels + size_t(k) * size_t(width) * size_t(height) * 4;
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < width; ++x, p += 4) {
                frame.setPixel(x, y, qRgba(p[0], p[1], p[2], p[3]));
            }
        }
        out.frames.append(frame);
        out.delays.append(delaysMs[k] / 10);
    }
    stbi_image_free(pixels);
    free(delaysMs); // NOLINT: stb allocates the delays with malloc
    return out;
}

namespace {

class StrictReader
{
public:
    explicit StrictReader(const QByteArray& gif) : m_gif(gif) {}

    std::expected<ReadGif, QString> read()
    {
        if (m_gif.size() < 13 || !m_gif.startsWith("GIF89a")) {
            return fail(QStringLiteral("not a GIF"));
        }
        m_at = 6;
        const int width = u16();
        const int height = u16();
        const quint8 flags = u8();
        m_at += 2;
        QList<QRgb> global = colourTable(flags);
        QImage canvas(width, height, QImage::Format_ARGB32);
        canvas.fill(0);
        ReadGif out;
        int delay = 0;
        int transparent = -1;
        int disposal = 0;
        while (m_error.isEmpty()) {
            if (m_at >= m_gif.size()) {
                return fail(QStringLiteral("no trailer"));
            }
            const quint8 introducer = u8();
            if (introducer == 0x3b) {
                if (m_at != m_gif.size()) {
                    return fail(QStringLiteral("data after the trailer"));
                }
                return out;
            }
            if (introducer == 0x21) {
                const quint8 label = u8();
                const QByteArray data = subBlocks();
                if (label == 0xff && data.startsWith("NETSCAPE2.0") && data.size() == 14) {
                    out.loopCount = quint8(data[12]) | (quint8(data[13]) << 8);
                } else if (label == 0xf9) {
                    if (data.size() != 4) {
                        return fail(QStringLiteral("graphic control extension of %1 bytes").arg(data.size()));
                    }
                    disposal = (quint8(data[0]) >> 2) & 7;
                    transparent = (data[0] & 1) ? quint8(data[3]) : -1;
                    delay = quint8(data[1]) | (quint8(data[2]) << 8);
                }
                continue;
            }
            if (introducer != 0x2c) {
                return fail(QStringLiteral("unknown block 0x%1").arg(introducer, 2, 16, QLatin1Char('0')));
            }
            const int left = u16();
            const int top = u16();
            const int frameWidth = u16();
            const QRect rect(left, top, frameWidth, u16());
            const quint8 imageFlags = u8();
            if (imageFlags & 0x40) {
                return fail(QStringLiteral("interlaced frame"));
            }
            if (!QRect(0, 0, width, height).contains(rect)) {
                return fail(QStringLiteral("frame outside the screen"));
            }
            const QList<QRgb> local = colourTable(imageFlags);
            const int minCodeSize = u8();
            if (minCodeSize < 2 || minCodeSize > 8) {
                return fail(QStringLiteral("minimum code size %1").arg(minCodeSize));
            }
            const auto indices = lzw(subBlocks(), minCodeSize, qsizetype(rect.width()) * rect.height());
            if (!indices) {
                return std::unexpected(indices.error());
            }
            const QList<QRgb>& palette = (imageFlags & 0x80) ? local : global;
            for (const quint8 index : *indices) {
                if (index >= palette.size()) {
                    return fail(QStringLiteral("index %1 outside the colour table").arg(index));
                }
            }
            if (disposal > 1) {
                return fail(QStringLiteral("disposal %1, which the writer never uses").arg(disposal));
            }
            drawFrame(canvas, rect, indices->data(), palette, transparent);
            out.frames.append(canvas.copy());
            out.delays.append(delay);
            transparent = -1;
            delay = 0;
            disposal = 0;
        }
        return std::unexpected(m_error);
    }

private:
    std::unexpected<QString> fail(const QString& what)
    {
        m_error = QStringLiteral("strict reader: ") + what + QStringLiteral(" at byte %1").arg(m_at);
        m_at = m_gif.size();
        return std::unexpected(m_error);
    }
    quint8 u8()
    {
        if (m_at >= m_gif.size()) {
            fail(QStringLiteral("file ends early"));
            return 0;
        }
        return quint8(m_gif[m_at++]);
    }
    int u16()
    {
        const int low = u8();
        return low | (u8() << 8);
    }
    QList<QRgb> colourTable(quint8 flags)
    {
        QList<QRgb> table;
        if (flags & 0x80) {
            for (int i = 0; i < (2 << (flags & 7)); ++i) {
                const int r = u8();
                const int g = u8();
                table.append(qRgb(r, g, u8()));
            }
        }
        return table;
    }
    QByteArray subBlocks()
    {
        QByteArray data;
        for (int length = u8(); length != 0 && m_error.isEmpty(); length = u8()) {
            if (m_at + length > m_gif.size()) {
                fail(QStringLiteral("sub-block runs past the end"));
                break;
            }
            data.append(m_gif.constData() + m_at, length);
            m_at += length;
        }
        return data;
    }

    // The decoder adds an entry for every code after the first following a clear, and widens its
    // codes once the next free entry needs another bit, up to 12.
    std::expected<std::vector<quint8>, QString> lzw(const QByteArray& data, int minCodeSize, qsizetype pixels)
    {
        const int clear = 1 << minCodeSize;
        const int end = clear + 1;
        std::array<int, 4096> prefix{};
        std::array<quint8, 4096> suffix{};
        std::array<int, 4096> length{};
        for (int c = 0; c < clear; ++c) {
            suffix[size_t(c)] = quint8(c);
            length[size_t(c)] = 1;
            prefix[size_t(c)] = -1;
        }
        std::vector<quint8> out;
        out.reserve(size_t(pixels));
        int size = minCodeSize + 1;
        int next = end + 1;
        int previous = -1;
        qsizetype bit = 0;
        const qsizetype bits = data.size() * 8;
        const auto first = [&](int code) {
            while (prefix[size_t(code)] >= 0) {
                code = prefix[size_t(code)];
            }
            return suffix[size_t(code)];
        };
        const auto emit = [&](int code) {
            const size_t at = out.size();
            out.resize(at + size_t(length[size_t(code)]));
            for (size_t i = out.size(); i > at; code = prefix[size_t(code)]) {
                out[--i] = suffix[size_t(code)];
            }
        };
        for (qsizetype n = 0;; ++n) {
            if (bit + size > bits) {
                return fail(QStringLiteral("LZW data ends without an end code"));
            }
            int code = 0;
            for (int i = 0; i < size; ++i, ++bit) {
                code |= ((quint8(data[bit / 8]) >> (bit % 8)) & 1) << i;
            }
            if (n == 0 && code != clear) {
                return fail(QStringLiteral("LZW data does not start with a clear code"));
            }
            if (code == clear) {
                size = minCodeSize + 1;
                next = end + 1;
                previous = -1;
                continue;
            }
            if (code == end) {
                break;
            }
            if (previous < 0) {
                if (code >= clear) {
                    return fail(QStringLiteral("code %1 right after a clear").arg(code));
                }
                emit(code);
                previous = code;
                continue;
            }
            if (code > next || (code == next && next == 4096)) {
                return fail(QStringLiteral("code %1 not yet in the table (next %2, width %3)")
                                .arg(code)
                                .arg(next)
                                .arg(size));
            }
            if (next < 4096) {
                prefix[size_t(next)] = previous;
                suffix[size_t(next)] = first(code == next ? previous : code);
                length[size_t(next)] = length[size_t(previous)] + 1;
                ++next;
                if (next == (1 << size) && size < 12) {
                    ++size;
                }
            }
            if (qsizetype(out.size()) + length[size_t(code)] > pixels) {
                return fail(QStringLiteral("more pixels than the frame holds"));
            }
            emit(code);
            previous = code;
        }
        if ((bit + 7) / 8 != data.size()) {
            return fail(QStringLiteral("%1 bytes after the end code").arg(data.size() - (bit + 7) / 8));
        }
        if (qsizetype(out.size()) != pixels) {
            return fail(QStringLiteral("%1 pixels for a frame of %2").arg(out.size()).arg(pixels));
        }
        return out;
    }

    const QByteArray& m_gif;
    qsizetype m_at = 0;
    QString m_error;
};

} // namespace

std::expected<ReadGif, QString> readStrict(const QByteArray& gif)
{
    return StrictReader(gif).read();
}

std::expected<ReadGif, QString> readWithEveryReader(const QByteArray& gif)
{
    const auto strict = readStrict(gif);
    if (!strict) {
        return strict;
    }
    for (const auto& [name, other] : {std::pair(QStringLiteral("giflib"), readWithGiflib(gif)),
                                      std::pair(QStringLiteral("stb_image"), readWithStb(gif))}) {
        if (!other) {
            return other;
        }
        if (other->frames.size() != strict->frames.size()) {
            return std::unexpected(QStringLiteral("%1 reads %2 frames, the strict reader %3")
                                       .arg(name)
                                       .arg(other->frames.size())
                                       .arg(strict->frames.size()));
        }
        for (qsizetype k = 0; k < strict->frames.size(); ++k) {
            if (other->frames[k] != strict->frames[k]) {
                return std::unexpected(
                    QStringLiteral("%1 differs from the strict reader in frame %2").arg(name).arg(k));
            }
        }
        // stb_image reports a delay of 0 as 0 too, so delays compare exactly.
        if (other->delays != strict->delays) {
            return std::unexpected(QStringLiteral("%1 reads other delays").arg(name));
        }
    }
    return strict;
}

} // namespace vantalo::testing
