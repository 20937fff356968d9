#include "GifReaders.h"

#include <gif_lib.h>

#include <QBuffer>
#include <QImageReader>

#include <algorithm>
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

using GifFile = std::unique_ptr<GifFileType, void (*)(GifFileType*)>;
GifFile openGif(MemoryInput& input)
{
    return {DGifOpen(&input, readMemory, nullptr), [](GifFileType* f) { DGifCloseFile(f, nullptr); }};
}

} // namespace

std::expected<ReadGif, QString> readWithQt(const QByteArray& gif)
{
    QBuffer buffer;
    buffer.setData(gif);
    buffer.open(QIODevice::ReadOnly);
    QImageReader reader(&buffer, "gif");
    ReadGif out;
    for (QImage frame; reader.read(&frame);) {
        // Qt keeps a clear pixel's colour; premultiplying clears it, as the other readers do.
        out.frames.append(frame.convertToFormat(QImage::Format_ARGB32_Premultiplied)
                              .convertToFormat(QImage::Format_ARGB32));
        out.delays.append(reader.nextImageDelay() / 10);
    }
    if (out.frames.isEmpty()) {
        return std::unexpected(QStringLiteral("Qt: ") + reader.errorString());
    }
    return out;
}

namespace {

// The decoder adds an entry for every code after the first following a clear, and widens its codes
// once the next free entry needs another bit, up to 12.
std::expected<std::vector<quint8>, QString> strictLzw(const QByteArray& data, int minCodeSize,
                                                      qsizetype pixels)
{
    const auto fail = [](const QString& what) { return std::unexpected(what); };
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
    const auto first = [&](int code) {
        while (prefix[size_t(code)] >= 0) {
            code = prefix[size_t(code)];
        }
        return suffix[size_t(code)];
    };
    for (qsizetype n = 0;; ++n) {
        if (bit + size > data.size() * 8) {
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
        if (previous < 0 && code >= clear) {
            return fail(QStringLiteral("code %1 right after a clear").arg(code));
        }
        if (previous >= 0) {
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
                size += next == (1 << size) && size < 12;
            }
        }
        if (qsizetype(out.size()) + length[size_t(code)] > pixels) {
            return fail(QStringLiteral("more pixels than the frame holds"));
        }
        const size_t at = out.size();
        out.resize(at + size_t(length[size_t(code)]));
        for (size_t i = out.size(), c = size_t(code); i > at; c = size_t(prefix[c])) {
            out[--i] = suffix[c];
        }
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

} // namespace

// giflib walks the blocks; every LZW code, and what the writer promises beyond the format, is
// checked here, and the frames are drawn from the codes as decoded here.
std::expected<ReadGif, QString> readStrictly(const QByteArray& gif)
{
    MemoryInput input{&gif};
    const GifFile file = openGif(input);
    const auto fail = [&input](const QString& what) {
        return std::unexpected(QStringLiteral("strict reader: %1 at byte %2").arg(what).arg(input.at));
    };
    if (!file || !gif.startsWith("GIF89a")) {
        return fail(QStringLiteral("not a GIF"));
    }
    const auto giflibFailed = [&] { return fail(QString::fromUtf8(GifErrorString(file->Error))); };
    // An extension's data or an image's codes: the sub-blocks one after the other.
    const auto blocks = [&file](GifByteType* block, int (*next)(GifFileType*, GifByteType**)) {
        std::optional<QByteArray> data(QByteArray{});
        while (block && data) {
            data->append(reinterpret_cast<const char*>(block + 1), block[0]);
            if (next(file.get(), &block) != GIF_OK) {
                data.reset();
            }
        }
        return data;
    };
    ReadGif out;
    QImage canvas(file->SWidth, file->SHeight, QImage::Format_ARGB32);
    canvas.fill(0);
    int disposal = 0;
    int delay = 0;
    int transparent = -1;
    for (GifRecordType type = UNDEFINED_RECORD_TYPE; type != TERMINATE_RECORD_TYPE;) {
        GifByteType* block = nullptr;
        int code = 0;
        if (DGifGetRecordType(file.get(), &type) != GIF_OK) {
            return giflibFailed();
        }
        if (type == EXTENSION_RECORD_TYPE) {
            const auto data = DGifGetExtension(file.get(), &code, &block) == GIF_OK
                                  ? blocks(block, DGifGetExtensionNext)
                                  : std::nullopt;
            if (!data) {
                return giflibFailed();
            }
            if (code == 0xff && data->startsWith("NETSCAPE2.0") && data->size() == 14) {
                out.loopCount = quint8(data->at(12)) | (quint8(data->at(13)) << 8);
            } else if (code == 0xf9 && data->size() != 4) {
                return fail(QStringLiteral("graphic control extension of %1 bytes").arg(data->size()));
            } else if (code == 0xf9) {
                disposal = (quint8(data->at(0)) >> 2) & 7;
                delay = quint8(data->at(1)) | (quint8(data->at(2)) << 8);
                transparent = (data->at(0) & 1) ? quint8(data->at(3)) : -1;
            }
        } else if (type == IMAGE_DESC_RECORD_TYPE) {
            if (DGifGetImageDesc(file.get()) != GIF_OK || DGifGetCode(file.get(), &code, &block) != GIF_OK) {
                return giflibFailed();
            }
            const GifImageDesc& d = file->Image;
            if (d.Interlace || d.Left + d.Width > file->SWidth || d.Top + d.Height > file->SHeight) {
                return fail(QStringLiteral("interlaced or outside the screen"));
            }
            if (code < 2 || code > 8 || disposal > 1) {
                return fail(QStringLiteral("minimum code size %1, disposal %2").arg(code).arg(disposal));
            }
            const auto codes = blocks(block, DGifGetCodeNext);
            if (!codes) {
                return giflibFailed();
            }
            const auto indices = strictLzw(*codes, code, qsizetype(d.Width) * d.Height);
            if (!indices) {
                return fail(indices.error());
            }
            const ColorMapObject* map = d.ColorMap ? d.ColorMap : file->SColorMap;
            if (std::ranges::any_of(*indices, [map](quint8 i) { return !map || i >= map->ColorCount; })) {
                return fail(QStringLiteral("an index outside the colour table"));
            }
            QList<QRgb> palette;
            for (int c = 0; map && c < map->ColorCount; ++c) {
                palette.append(qRgb(map->Colors[c].Red, map->Colors[c].Green, map->Colors[c].Blue));
            }
            drawFrame(canvas, QRect(d.Left, d.Top, d.Width, d.Height), indices->data(), palette, transparent);
            out.frames.append(canvas.copy());
            out.delays.append(delay);
            out.tableSizes.append(int(palette.size()));
            disposal = delay = 0;
            transparent = -1;
        }
    }
    if (input.at != gif.size()) {
        return fail(QStringLiteral("data after the trailer"));
    }
    return out;
}

std::expected<ReadGif, QString> readWithEveryReader(const QByteArray& gif)
{
    const auto read = readStrictly(gif);
    const auto qt = readWithQt(gif);
    if (!read || !qt) {
        return std::unexpected(!read ? read.error() : qt.error());
    }
    QList<int> delays = read->delays;
    std::ranges::replace(delays, 0, 10); // Qt plays a delay of 0 as 100 ms, as browsers do
    if (qt->frames.size() != read->frames.size() || qt->delays != delays) {
        return std::unexpected(
            QStringLiteral("Qt reads %1 frames and other delays than the strict reader's %2")
                .arg(qt->frames.size())
                .arg(read->frames.size()));
    }
    for (qsizetype k = 0; k < read->frames.size(); ++k) {
        if (qt->frames[k] != read->frames[k]) {
            return std::unexpected(QStringLiteral("Qt differs from the strict reader in frame %1").arg(k));
        }
    }
    return read;
}

} // namespace vantalo::testing
