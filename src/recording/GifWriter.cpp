#include "GifWriter.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <string_view>
#include <vector>

namespace vantalo {

QList<int> gifDelays(qsizetype count, double delaySeconds)
{
    QList<int> delays;
    delays.reserve(count);
    long long previousEnd = 0;
    for (qsizetype k = 0; k < count; ++k) {
        const long long end = std::llround(100.0 * double(k + 1) * delaySeconds);
        delays.append(static_cast<int>(std::min<long long>(end - previousEnd, 0xffff)));
        previousEnd = end;
    }
    return delays;
}

int colorTableBits(qsizetype paletteSize)
{
    int bits = 1;
    while ((qsizetype(1) << bits) < paletteSize && bits < 8) {
        ++bits;
    }
    return bits;
}

namespace {

// Bits go out least significant first; the bytes are cut into sub-blocks of at most 255 at the end.
class CodeWriter
{
public:
    CodeWriter() { m_bytes.reserve(4096); }
    void write(unsigned code, int size)
    {
        m_bits |= quint64(code) << m_count;
        m_count += size;
        while (m_count >= 8) {
            m_bytes.push_back(quint8(m_bits));
            m_bits >>= 8;
            m_count -= 8;
        }
    }
    QByteArray finish()
    {
        if (m_count > 0) {
            m_bytes.push_back(quint8(m_bits));
        }
        const size_t blocks = (m_bytes.size() + 254) / 255;
        QByteArray out(qsizetype(m_bytes.size() + blocks + 1), Qt::Uninitialized);
        char* to = out.data();
        for (size_t at = 0; at < m_bytes.size(); at += 255) {
            const size_t length = std::min<size_t>(255, m_bytes.size() - at);
            *to++ = char(length);
            std::memcpy(to, m_bytes.data() + at, length);
            to += length;
        }
        *to = '\0';
        return out;
    }

private:
    std::vector<quint8> m_bytes;
    quint64 m_bits = 0;
    int m_count = 0;
};

// The string table as a direct index, child[prefix code][next index] → code: one load a pixel,
// no hashing. An entry counts only if it names a code of the current table that really is that
// prefix and index (two small arrays that stay in the cache), so starting a new table (a clear, a
// new frame) wipes nothing, and each thread keeps one table.
class StringTable
{
public:
    StringTable() : m_child(4096 * 256), m_prefix(4096), m_next(4096) {}
    int find(unsigned prefix, quint8 next, unsigned firstCode, unsigned maxCode) const
    {
        const unsigned code = m_child[(prefix << 8) | next];
        if (code >= firstCode && code <= maxCode && m_prefix[code] == prefix && m_next[code] == next) {
            return int(code);
        }
        return -1;
    }
    void insert(unsigned prefix, quint8 next, unsigned code)
    {
        m_child[(prefix << 8) | next] = quint16(code);
        m_prefix[code] = quint16(prefix);
        m_next[code] = next;
    }

private:
    std::vector<quint16> m_child;
    std::vector<quint16> m_prefix;
    std::vector<quint8> m_next;
};

void put16(QByteArray& out, int value)
{
    out.append(char(value & 0xff));
    out.append(char((value >> 8) & 0xff));
}

} // namespace

QByteArray lzwCompress(std::span<const quint8> indices, int minCodeSize)
{
    const unsigned clearCode = 1u << minCodeSize;
    const unsigned endCode = clearCode + 1;
    CodeWriter out;
    int codeSize = minCodeSize + 1;
    out.write(clearCode, codeSize);
    if (indices.empty()) {
        out.write(endCode, codeSize);
        return out.finish();
    }

    thread_local StringTable table;
    const unsigned firstCode = endCode + 1;
    unsigned maxCode = endCode;
    unsigned current = indices[0];
    for (size_t i = 1; i < indices.size(); ++i) {
        const quint8 next = indices[i];
        const int found = table.find(current, next, firstCode, maxCode);
        if (found >= 0) {
            current = unsigned(found);
            continue;
        }
        out.write(current, codeSize);
        table.insert(current, next, ++maxCode);
        if (maxCode >= (1u << codeSize)) {
            ++codeSize;
        }
        if (maxCode == 4095) {
            // The table is full: start a new one.
            out.write(clearCode, 12);
            codeSize = minCodeSize + 1;
            maxCode = endCode;
        }
        current = next;
    }
    out.write(current, codeSize);
    // A decoder adds a table entry for every code after the first, one step behind us, so after
    // the last code it holds one entry more than we inserted; it widens its codes as if we had
    // inserted it too.
    if (maxCode + 1 >= (1u << codeSize) && codeSize < 12) {
        ++codeSize;
    }
    // A clear before the end keeps every decoder's code size in step with ours.
    out.write(clearCode, codeSize);
    out.write(endCode, minCodeSize + 1);
    return out.finish();
}

namespace {

// The string table with each code's children listed too, so that a string can be continued with
// any of the pixels the table already knows after it.
class BranchingTable
{
public:
    static constexpr quint16 none = 0xffff;
    BranchingTable() : m_child(4096 * 256), m_prefix(4096), m_next(4096), m_first(4096, none), m_sibling(4096)
    {
    }
    void reset(unsigned roots) { std::fill_n(m_first.begin(), roots, none); }
    int find(unsigned prefix, quint8 next, unsigned firstCode, unsigned maxCode) const
    {
        const unsigned code = m_child[(prefix << 8) | next];
        if (code >= firstCode && code <= maxCode && m_prefix[code] == prefix && m_next[code] == next) {
            return int(code);
        }
        return -1;
    }
    void insert(unsigned prefix, quint8 next, unsigned code)
    {
        m_child[(prefix << 8) | next] = quint16(code);
        m_prefix[code] = quint16(prefix);
        m_next[code] = next;
        m_first[code] = none;
        m_sibling[code] = m_first[prefix];
        m_first[prefix] = quint16(code);
    }
    quint16 firstChild(unsigned code) const { return m_first[code]; }
    quint16 sibling(unsigned code) const { return m_sibling[code]; }
    quint8 next(unsigned code) const { return m_next[code]; }

private:
    std::vector<quint16> m_child;
    std::vector<quint16> m_prefix;
    std::vector<quint8> m_next;
    std::vector<quint16> m_first;
    std::vector<quint16> m_sibling;
};

} // namespace

int lossyDistanceSquared(int level)
{
    // Level 100 lets a grey be off by 30 levels of 255.
    const int greyStep = std::clamp(level, 0, 100) * 30 / 100;
    return 9 * greyStep * greyStep;
}

QByteArray lzwCompressLossy(const LossyPixels& pixels, const QList<QRgb>& palette, int transparentIndex,
                            int minCodeSize, int maxDistanceSquared, std::vector<quint8>& written)
{
    const int scale = std::max(1, pixels.scale);
    const size_t width = size_t(pixels.width) * size_t(scale);
    const size_t count = pixels.wanted.size() * size_t(scale) * size_t(scale);
    written.assign(count, 0);
    if (count == 0) {
        return lzwCompress({}, minCodeSize);
    }
    const unsigned clearCode = 1u << minCodeSize;
    const unsigned endCode = clearCode + 1;
    const unsigned firstCode = endCode + 1;
    CodeWriter out;
    int codeSize = minCodeSize + 1;
    out.write(clearCode, codeSize);

    thread_local BranchingTable table;
    table.reset(clearCode);
    unsigned maxCode = endCode;
    unsigned current = pixels.wanted[0];
    written[0] = quint8(current);
    size_t x = 0;
    size_t y = 0;
    for (size_t i = 1; i < count; ++i) {
        if (++x == width) {
            x = 0;
            ++y;
        }
        // A scaled pixel's first copy is chosen; the others repeat it exactly.
        const bool copy = y % size_t(scale) != 0 || x % size_t(scale) != 0;
        const size_t source = (y / size_t(scale)) * size_t(pixels.width) + x / size_t(scale);
        const quint8 next = y % size_t(scale) != 0   ? written[i - width]
                            : x % size_t(scale) != 0 ? written[i - 1]
                                                     : pixels.wanted[source];
        int found = table.find(current, next, firstCode, maxCode);
        if (found < 0 && !copy && maxDistanceSquared > 0) {
            // The closest continuation the table knows, if it is close enough.
            int best = maxDistanceSquared + 1;
            for (quint16 child = table.firstChild(current); child != BranchingTable::none;
                 child = table.sibling(child)) {
                const quint8 index = table.next(child);
                int distance;
                if (index == transparentIndex) {
                    distance = pixels.clearOk[source] ? maxDistanceSquared : best;
                } else if (index < palette.size()) {
                    distance = perceptualDistanceSquared(palette[index], pixels.target[source]);
                } else {
                    continue;
                }
                // A doubled pixel's copy follows at once: a continuation the table cannot extend
                // with it gains nothing.
                if (scale > 1 && x + 1 < width && table.find(child, index, firstCode, maxCode) < 0) {
                    continue;
                }
                if (distance < best) {
                    best = distance;
                    found = child;
                }
            }
        }
        if (found >= 0) {
            current = unsigned(found);
            written[i] = table.next(current);
            continue;
        }
        written[i] = next;
        out.write(current, codeSize);
        table.insert(current, next, ++maxCode);
        if (maxCode >= (1u << codeSize)) {
            ++codeSize;
        }
        if (maxCode == 4095) {
            out.write(clearCode, 12);
            codeSize = minCodeSize + 1;
            maxCode = endCode;
            table.reset(clearCode);
        }
        current = next;
    }
    out.write(current, codeSize);
    if (maxCode + 1 >= (1u << codeSize) && codeSize < 12) {
        ++codeSize;
    }
    out.write(clearCode, codeSize);
    out.write(endCode, minCodeSize + 1);
    return out.finish();
}

void appendGifHeader(QByteArray& out, QSize screenSize)
{
    out.append("GIF89a", 6);
    put16(out, screenSize.width());
    put16(out, screenSize.height());
    out.append(char(0)); // no global colour table
    out.append(char(0)); // background colour index
    out.append(char(0)); // pixel aspect ratio
    // Loop for ever.
    out.append("\x21\xff\x0bNETSCAPE2.0\x03\x01\x00\x00\x00", 19);
}

void appendGifFrame(QByteArray& out, const EncodedFrame& frame, int delay)
{
    const bool transparent = frame.transparentIndex >= 0;
    // Graphic control extension: drawn over the frame before (disposal 1), its delay.
    out.append("\x21\xf9\x04", 3);
    out.append(char((1 << 2) | (transparent ? 1 : 0)));
    put16(out, delay);
    out.append(char(transparent ? frame.transparentIndex : 0));
    out.append(char(0));

    const int bits = colorTableBits(frame.palette.size());
    out.append(char(0x2c));
    put16(out, frame.rect.x());
    put16(out, frame.rect.y());
    put16(out, frame.rect.width());
    put16(out, frame.rect.height());
    out.append(char(0x80 | (bits - 1)));
    for (int i = 0; i < (1 << bits); ++i) {
        const QRgb colour = i < frame.palette.size() ? frame.palette[i] : 0;
        out.append(char(qRed(colour)));
        out.append(char(qGreen(colour)));
        out.append(char(qBlue(colour)));
    }
    out.append(char(frame.minCodeSize));
    out.append(frame.compressed);
}

QByteArray assembleGif(QSize screenSize, QList<EncodedFrame> frames, const QList<int>& delays)
{
    qsizetype total = 64;
    for (const EncodedFrame& frame : frames) {
        total += frame.compressed.size() + 3 * 256 + 32;
    }
    QByteArray out;
    out.reserve(total);
    appendGifHeader(out, screenSize);
    for (qsizetype k = 0; k < frames.size(); ++k) {
        appendGifFrame(out, frames[k], delays.value(k, 0));
        frames[k].compressed = QByteArray();
    }
    out.append(gifTrailer);
    return out;
}

bool isCompleteGif(std::span<const char> bytes)
{
    qsizetype at = 13;
    const auto size = qsizetype(bytes.size());
    const auto byte = [&bytes](qsizetype i) { return quint8(bytes[size_t(i)]); };
    const auto skipSubBlocks = [&] {
        while (at < size && byte(at) != 0) {
            at += 1 + byte(at);
        }
        ++at; // the terminating empty block
    };
    const auto colourTable = [](quint8 flags) { return (flags & 0x80) ? 3 * (2 << (flags & 7)) : 0; };
    if (size < at || std::string_view(bytes.data(), 6) != "GIF89a") {
        return false;
    }
    at += colourTable(byte(10));
    while (at < size) {
        switch (byte(at)) {
        case 0x3b:
            return at == size - 1;
        case 0x21:
            at += 2;
            skipSubBlocks();
            break;
        case 0x2c:
            if (at + 10 >= size) {
                return false;
            }
            at += 10 + colourTable(byte(at + 9));
            ++at; // the LZW minimum code size
            skipSubBlocks();
            break;
        default:
            return false;
        }
    }
    return false;
}

} // namespace vantalo
