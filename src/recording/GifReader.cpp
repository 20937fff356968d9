#include "GifReader.h"

#include <QDir>

#include <array>
#include <numeric>

namespace vantalo {

namespace {
// A picture this large (200 MB as 32-bit pixels) is refused rather than held.
constexpr qint64 kMaxPixels = 50'000'000;
constexpr QRgb kBackground = 0xff000000;
} // namespace

std::expected<std::unique_ptr<GifReader>, Failure> GifReader::open(const QString& path)
{
    std::unique_ptr<GifReader> reader(new GifReader(path));
    reader->m_name = QDir::toNativeSeparators(path);
    if (!reader->m_file.open(QIODevice::ReadOnly)) {
        return std::unexpected(
            Failure{QStringLiteral("Cannot read %1: %2").arg(reader->m_name, reader->m_file.errorString())});
    }
    const QByteArray header = reader->m_file.read(13);
    if (header.size() < 6 || (!header.startsWith("GIF89a") && !header.startsWith("GIF87a"))) {
        return std::unexpected(Failure{QStringLiteral("%1 is not a GIF").arg(reader->m_name)});
    }
    if (header.size() < 13) {
        return std::unexpected(reader->truncated());
    }
    const auto u16 = [&header](int at) {
        return int(quint8(header[at])) | (int(quint8(header[at + 1])) << 8);
    };
    const QSize size(u16(6), u16(8));
    if (size.isEmpty() || qint64(size.width()) * size.height() > kMaxPixels) {
        return std::unexpected(reader->corrupt(
            QStringLiteral("a picture of %1 × %2 pixels").arg(size.width()).arg(size.height())));
    }
    const auto flags = quint8(header[10]);
    if (flags & 0x80) {
        if (auto ok = reader->readPalette(reader->m_globalPalette, (flags & 7) + 1); !ok) {
            return std::unexpected(ok.error());
        }
    }
    reader->m_picture = QImage(size, QImage::Format_RGB32);
    reader->m_picture.fill(kBackground);
    return reader;
}

double GifReader::progress() const
{
    return m_file.size() > 0 ? double(m_file.pos()) / double(m_file.size()) : 1.0;
}

Failure GifReader::truncated() const
{
    return Failure{QStringLiteral("%1 is cut short (after %2 frames)").arg(m_name).arg(m_frames)};
}

Failure GifReader::corrupt(const QString& what) const
{
    return Failure{QStringLiteral("%1 is not a GIF that can be read: %2").arg(m_name, what)};
}

std::expected<quint8, Failure> GifReader::byte()
{
    char c;
    if (!m_file.getChar(&c)) {
        return std::unexpected(truncated());
    }
    return quint8(c);
}

std::expected<QByteArray, Failure> GifReader::bytes(qint64 count)
{
    QByteArray data = m_file.read(count);
    if (data.size() != count) {
        return std::unexpected(truncated());
    }
    return data;
}

std::expected<void, Failure> GifReader::skipSubBlocks()
{
    for (;;) {
        const auto length = byte();
        if (!length) {
            return std::unexpected(length.error());
        }
        if (*length == 0) {
            return {};
        }
        if (m_file.skip(*length) != *length) {
            return std::unexpected(truncated());
        }
    }
}

std::expected<void, Failure> GifReader::readPalette(QList<QRgb>& palette, int bits)
{
    const auto data = bytes(3 * (qint64(1) << bits));
    if (!data) {
        return std::unexpected(data.error());
    }
    palette.resize(qsizetype(1) << bits);
    for (qsizetype i = 0; i < palette.size(); ++i) {
        palette[i] = qRgb(quint8(data->at(3 * i)), quint8(data->at(3 * i + 1)), quint8(data->at(3 * i + 2)));
    }
    return {};
}

// Variable-width LZW as GIF decoders read it: a code may name the entry about to be added.
std::expected<void, Failure> GifReader::decodeImage(int minCodeSize, qsizetype pixelCount)
{
    if (minCodeSize < 1 || minCodeSize > 11) {
        return std::unexpected(corrupt(QStringLiteral("an LZW code size of %1").arg(minCodeSize)));
    }
    m_indices.assign(size_t(pixelCount), 0);
    std::array<quint16, 4096> prefix{};
    std::array<quint8, 4096> suffix{};
    std::array<quint8, 4097> stack{};
    const unsigned clearCode = 1u << minCodeSize;
    const unsigned endCode = clearCode + 1;
    unsigned nextCode = endCode + 1;
    int codeSize = minCodeSize + 1;
    int previous = -1;
    quint8 firstOfPrevious = 0;
    qsizetype written = 0;
    quint32 bits = 0;
    int bitCount = 0;
    bool ended = false;
    for (;;) {
        const auto length = byte();
        if (!length) {
            return std::unexpected(length.error());
        }
        if (*length == 0) {
            break;
        }
        const auto block = bytes(*length);
        if (!block) {
            return std::unexpected(block.error());
        }
        if (ended) {
            continue; // data after the end code is ignored, as viewers do
        }
        for (const char c : *block) {
            bits |= quint32(quint8(c)) << bitCount;
            bitCount += 8;
            while (bitCount >= codeSize && !ended) {
                const unsigned code = bits & ((1u << codeSize) - 1);
                bits >>= codeSize;
                bitCount -= codeSize;
                if (code == clearCode) {
                    nextCode = endCode + 1;
                    codeSize = minCodeSize + 1;
                    previous = -1;
                    continue;
                }
                if (code == endCode) {
                    ended = true;
                    break;
                }
                int depth = 0;
                unsigned walk = code;
                if (previous < 0) {
                    if (code >= clearCode) {
                        return std::unexpected(corrupt(QStringLiteral("a code before any table entry")));
                    }
                } else if (code > nextCode || (code == nextCode && nextCode >= 4096)) {
                    return std::unexpected(corrupt(QStringLiteral("a code not in the table")));
                } else if (code == nextCode) {
                    stack[depth++] = firstOfPrevious;
                    walk = unsigned(previous);
                }
                while (walk >= clearCode) {
                    stack[depth++] = suffix[walk];
                    walk = prefix[walk];
                }
                stack[depth++] = quint8(walk);
                const quint8 first = quint8(walk);
                while (depth > 0) {
                    const quint8 index = stack[--depth];
                    if (written < pixelCount) {
                        m_indices[size_t(written)] = index;
                    }
                    ++written;
                }
                if (previous >= 0 && nextCode < 4096) {
                    prefix[nextCode] = quint16(previous);
                    suffix[nextCode] = first;
                    ++nextCode;
                    if (nextCode == (1u << codeSize) && codeSize < 12) {
                        ++codeSize;
                    }
                }
                previous = int(code);
                firstOfPrevious = first;
            }
        }
    }
    if (written < pixelCount) {
        return std::unexpected(corrupt(QStringLiteral("frame %1 has %2 of its %3 pixels")
                                           .arg(m_frames + 1)
                                           .arg(written)
                                           .arg(pixelCount)));
    }
    return {};
}

void GifReader::dispose()
{
    const QRect rect = m_lastRect.intersected(m_picture.rect());
    if (rect.isEmpty()) {
        return;
    }
    for (int y = rect.top(); y <= rect.bottom(); ++y) {
        auto* row = reinterpret_cast<QRgb*>(m_picture.scanLine(y));
        for (int x = rect.left(); x <= rect.right(); ++x) {
            const QRgb colour =
                m_disposal == 3 ? m_saved.pixel(x - rect.left(), y - rect.top()) : kBackground;
            m_changed |= row[x] != colour;
            row[x] = colour;
        }
    }
}

std::expected<bool, Failure> GifReader::readFrame()
{
    if (m_ended) {
        return false;
    }
    int delay = 0;
    int transparent = -1;
    int disposal = 0;
    for (;;) {
        const auto kind = byte();
        if (!kind) {
            return std::unexpected(kind.error());
        }
        if (*kind == 0x3b) {
            m_ended = true;
            if (m_frames == 0) {
                return std::unexpected(corrupt(QStringLiteral("it has no frames")));
            }
            return false;
        }
        if (*kind == 0x21) {
            const auto label = byte();
            if (!label) {
                return std::unexpected(label.error());
            }
            if (*label == 0xf9) {
                const auto size = byte();
                if (!size) {
                    return std::unexpected(size.error());
                }
                const auto control = bytes(*size);
                if (!control) {
                    return std::unexpected(control.error());
                }
                if (*size >= 4) {
                    const auto packed = quint8(control->at(0));
                    disposal = (packed >> 2) & 7;
                    delay = int(quint8(control->at(1))) | (int(quint8(control->at(2))) << 8);
                    transparent = (packed & 1) ? int(quint8(control->at(3))) : -1;
                }
                if (auto ok = skipSubBlocks(); !ok) {
                    return std::unexpected(ok.error());
                }
                continue;
            }
            if (auto ok = skipSubBlocks(); !ok) {
                return std::unexpected(ok.error());
            }
            continue;
        }
        if (*kind != 0x2c) {
            return std::unexpected(corrupt(QStringLiteral("an unknown block (0x%1) after frame %2")
                                               .arg(*kind, 2, 16, QLatin1Char('0'))
                                               .arg(m_frames)));
        }
        const auto descriptor = bytes(9);
        if (!descriptor) {
            return std::unexpected(descriptor.error());
        }
        const auto u16 = [&](int at) {
            return int(quint8(descriptor->at(at))) | (int(quint8(descriptor->at(at + 1))) << 8);
        };
        const QRect rect(u16(0), u16(2), u16(4), u16(6));
        const auto flags = quint8(descriptor->at(8));
        QList<QRgb> local;
        if (flags & 0x80) {
            if (auto ok = readPalette(local, (flags & 7) + 1); !ok) {
                return std::unexpected(ok.error());
            }
        }
        const QList<QRgb>& palette = (flags & 0x80) ? local : m_globalPalette;
        if (qint64(rect.width()) * rect.height() > kMaxPixels) {
            return std::unexpected(
                corrupt(QStringLiteral("a frame of %1 × %2 pixels").arg(rect.width()).arg(rect.height())));
        }
        const auto minCodeSize = byte();
        if (!minCodeSize) {
            return std::unexpected(minCodeSize.error());
        }
        if (auto ok = decodeImage(*minCodeSize, qsizetype(rect.width()) * rect.height()); !ok) {
            return std::unexpected(ok.error());
        }

        m_changed = false;
        if (m_frames > 0) {
            if (m_disposal == 2 || m_disposal == 3) {
                dispose();
            }
        }
        const QRect visible = rect.intersected(m_picture.rect());
        if (disposal == 3 && !visible.isEmpty()) {
            m_saved = m_picture.copy(visible);
        }
        // Interlaced frames store rows every 8th from 0, every 8th from 4, every 4th from 2, then
        // every 2nd from 1.
        std::vector<int> rows(size_t(rect.height()));
        if (flags & 0x40) {
            size_t at = 0;
            for (const auto& [start, step] : {std::pair{0, 8}, {4, 8}, {2, 4}, {1, 2}}) {
                for (int y = start; y < rect.height(); y += step) {
                    rows[at++] = y;
                }
            }
        } else {
            std::iota(rows.begin(), rows.end(), 0);
        }
        for (int stored = 0; stored < rect.height(); ++stored) {
            const int y = rect.y() + rows[size_t(stored)];
            if (y >= m_picture.height()) {
                continue;
            }
            auto* row = reinterpret_cast<QRgb*>(m_picture.scanLine(y));
            const quint8* in = m_indices.data() + size_t(stored) * size_t(rect.width());
            for (int x = 0; x < rect.width() && rect.x() + x < m_picture.width(); ++x) {
                const int index = in[x];
                if (index == transparent) {
                    continue;
                }
                const QRgb colour = palette.value(index, kBackground) | 0xff000000;
                m_changed |= row[rect.x() + x] != colour;
                row[rect.x() + x] = colour;
            }
        }
        m_disposal = disposal;
        m_lastRect = visible;
        m_delay = delay;
        ++m_frames;
        return true;
    }
}

} // namespace vantalo
