#include "GifWriter.h"

#include <QHash>
#include <QSet>

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

protected:
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

namespace {

// After entry `maxCode` was added: codes widen once the next entry needs another bit, and a full
// table starts again with a clear. Says whether it did.
bool afterInsert(CodeWriter& out, unsigned& maxCode, int& codeSize, int minCodeSize)
{
    if (maxCode >= (1u << codeSize)) {
        ++codeSize;
    }
    if (maxCode < 4095) {
        return false;
    }
    out.write(1u << minCodeSize, 12);
    codeSize = minCodeSize + 1;
    maxCode = (1u << minCodeSize) + 1;
    return true;
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
        afterInsert(out, maxCode, codeSize, minCodeSize);
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
class BranchingTable : public StringTable
{
public:
    static constexpr quint16 none = 0xffff;
    BranchingTable() : m_first(4096, none), m_sibling(4096) {}
    void reset(unsigned roots)
    {
        std::fill_n(m_first.begin(), roots, none);
        m_rootCount = roots;
    }
    void insert(unsigned prefix, quint8 next, unsigned code)
    {
        StringTable::insert(prefix, next, code);
        m_first[code] = none;
        m_sibling[code] = m_first[prefix];
        m_first[prefix] = quint16(code);
    }
    quint16 firstChild(unsigned code) const { return m_first[code]; }
    quint16 sibling(unsigned code) const { return m_sibling[code]; }
    quint8 next(unsigned code) const { return code < m_rootCount ? quint8(code) : m_next[code]; }
    unsigned prefix(unsigned code) const { return m_prefix[code]; }

private:
    std::vector<quint16> m_first;
    std::vector<quint16> m_sibling;
    unsigned m_rootCount = 0;
};

} // namespace

int lossyDistanceSquared(int level)
{
    // Level 100 lets a grey be off by 30 levels of 255.
    const int greyStep = std::clamp(level, 0, 100) * 30 / 100;
    return 9 * greyStep * greyStep;
}

namespace {

// Finds, from one position, the longest string of the table whose pixels are all acceptable
// there: a depth-first walk over the children that stops after a fixed number of visits.
class LongestMatch
{
public:
    LongestMatch(const LossyPixels& pixels, const QList<QRgb>& palette, int transparentIndex, int limit,
                 const BranchingTable& table, const std::vector<quint8>& written)
        : m_pixels(pixels), m_palette(palette), m_transparent(transparentIndex), m_limit(limit),
          m_table(table), m_written(written), m_scale(size_t(std::max(1, pixels.scale))),
          m_width(size_t(pixels.width) * m_scale), m_count(pixels.wanted.size() * m_scale * m_scale),
          m_path(4097)
    {
    }

    // The index a string starting at `at` begins with: a copy where the pixel repeats another,
    // else the one wanted.
    quint8 first(size_t at) const
    {
        if ((at / m_width) % m_scale != 0) {
            return m_written[at - m_width];
        }
        if ((at % m_width) % m_scale != 0) {
            return m_written[at - 1];
        }
        return m_pixels.wanted[source(at)];
    }

    // The longest acceptable string from `at` that starts with `root`; its code and its length.
    std::pair<unsigned, size_t> search(unsigned root, size_t at)
    {
        m_start = at;
        m_best = root;
        m_bestLength = 1;
        m_budget = 96;
        m_path[0] = quint8(root);
        visit(root, 1);
        return {m_best, m_bestLength};
    }

private:
    // The index lossless compression writes at `at`.
    quint8 wanted(size_t at) const
    {
        if ((at / m_width) % m_scale != 0) {
            return shown(at - m_width);
        }
        if ((at % m_width) % m_scale != 0) {
            return shown(at - 1);
        }
        return m_pixels.wanted[source(at)];
    }
    size_t source(size_t at) const
    {
        return (at / m_width / m_scale) * size_t(m_pixels.width) + (at % m_width) / m_scale;
    }
    quint8 shown(size_t at) const { return at >= m_start ? m_path[at - m_start] : m_written[at]; }

    // Whether `index` may stand at `at`, and how far off it is (0: exactly what is wanted).
    int cost(quint8 index, size_t at) const
    {
        if ((at / m_width) % m_scale != 0) {
            return index == shown(at - m_width) ? 0 : -1;
        }
        if ((at % m_width) % m_scale != 0) {
            return index == shown(at - 1) ? 0 : -1;
        }
        const size_t from = source(at);
        if (index == m_pixels.wanted[from]) {
            return 0;
        }
        if (int(index) == m_transparent) {
            return m_pixels.clearOk[from] ? m_limit : -1;
        }
        if (index >= m_palette.size()) {
            return -1;
        }
        const int distance = perceptualDistanceSquared(m_palette[index], m_pixels.target[from]);
        return distance <= m_limit ? distance : -1;
    }

    void visit(unsigned node, size_t length)
    {
        if (length > m_bestLength) {
            m_best = node;
            m_bestLength = length;
        }
        const size_t at = m_start + length;
        if (at >= m_count || length >= 4096) {
            return;
        }
        // The exact pixel first: the longest plain match is never missed for the budget.
        for (const bool exact : {true, false}) {
            for (quint16 child = m_table.firstChild(node); child != BranchingTable::none && m_budget > 0;
                 child = m_table.sibling(child)) {
                const quint8 index = m_table.next(child);
                const int off = cost(index, at);
                if (off < 0 || (off == 0 && index == wanted(at)) != exact) {
                    continue;
                }
                --m_budget;
                m_path[length] = index;
                visit(child, length + 1);
            }
        }
    }

    const LossyPixels& m_pixels;
    const QList<QRgb>& m_palette;
    int m_transparent;
    int m_limit;
    const BranchingTable& m_table;
    const std::vector<quint8>& m_written;
    size_t m_scale;
    size_t m_width;
    size_t m_count;
    std::vector<quint8> m_path;
    size_t m_start = 0;
    unsigned m_best = 0;
    size_t m_bestLength = 0;
    int m_budget = 0;
};

} // namespace

QByteArray lzwCompressLossy(const LossyPixels& pixels, const QList<QRgb>& palette, int transparentIndex,
                            int minCodeSize, int maxDistanceSquared, std::vector<quint8>& written)
{
    const int scale = std::max(1, pixels.scale);
    const size_t count = pixels.wanted.size() * size_t(scale) * size_t(scale);
    written.assign(count, 0);
    if (count == 0) {
        return lzwCompress({}, minCodeSize);
    }
    const unsigned clearCode = 1u << minCodeSize;
    const unsigned endCode = clearCode + 1;
    CodeWriter out;
    int codeSize = minCodeSize + 1;
    out.write(clearCode, codeSize);

    thread_local BranchingTable table;
    table.reset(clearCode);
    LongestMatch match(pixels, palette, transparentIndex, std::max(0, maxDistanceSquared), table, written);
    unsigned maxCode = endCode;
    size_t at = 0;
    unsigned root = match.first(0);
    for (;;) {
        const auto [code, length] = match.search(root, at);
        // The string's pixels, from its last back to its first.
        unsigned walk = code;
        for (size_t k = length; k-- > 0;) {
            written[at + k] = table.next(walk);
            walk = table.prefix(walk);
        }
        out.write(code, codeSize);
        at += length;
        if (at >= count) {
            break;
        }
        root = match.first(at);
        table.insert(code, quint8(root), ++maxCode);
        if (afterInsert(out, maxCode, codeSize, minCodeSize)) {
            table.reset(clearCode);
        }
    }
    if (maxCode + 1 >= (1u << codeSize) && codeSize < 12) {
        ++codeSize;
    }
    out.write(clearCode, codeSize);
    out.write(endCode, minCodeSize + 1);
    return out.finish();
}

namespace {

void appendColourTable(QByteArray& out, const QList<QRgb>& palette, int bits)
{
    for (int i = 0; i < (1 << bits); ++i) {
        const QRgb colour = i < palette.size() ? palette[i] : 0;
        out.append(char(qRed(colour)));
        out.append(char(qGreen(colour)));
        out.append(char(qBlue(colour)));
    }
}

} // namespace

void appendGifHeader(QByteArray& out, QSize screenSize, const QList<QRgb>& globalTable)
{
    out.append("GIF89a", 6);
    put16(out, screenSize.width());
    put16(out, screenSize.height());
    const int bits = globalTable.isEmpty() ? 0 : colorTableBits(globalTable.size());
    // A global colour table (8 bits a primary) of 2^bits entries, or none.
    out.append(char(bits > 0 ? 0x80 | (7 << 4) | (bits - 1) : 0));
    out.append(char(0)); // background colour index
    out.append(char(0)); // pixel aspect ratio
    if (bits > 0) {
        appendColourTable(out, globalTable, bits);
    }
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

    out.append(char(0x2c));
    put16(out, frame.rect.x());
    put16(out, frame.rect.y());
    put16(out, frame.rect.width());
    put16(out, frame.rect.height());
    if (frame.sharedTable) {
        out.append(char(0)); // no table of its own
    } else {
        const int bits = colorTableBits(frame.palette.size());
        out.append(char(0x80 | (bits - 1)));
        appendColourTable(out, frame.palette, bits);
    }
    out.append(char(frame.minCodeSize));
    out.append(frame.compressed);
}

namespace {

// Changes the index each literal code of an LZW stream names (`to[index]`), in place: codes keep
// their widths and positions, which follow the table a decoder builds as it reads.
void renameLiterals(QByteArray& compressed, int minCodeSize, const std::array<quint8, 256>& to)
{
    // Each sub-block's bytes (without its length byte) in turn.
    const auto eachBlock = [&compressed](const auto& visit) {
        for (qsizetype at = 0; at < compressed.size() && compressed[at] != 0;
             at += 1 + quint8(compressed[at])) {
            visit(reinterpret_cast<quint8*>(compressed.data() + at + 1), size_t(quint8(compressed[at])));
        }
    };
    std::vector<quint8> bits;
    bits.reserve(size_t(compressed.size()));
    eachBlock(
        [&bits](const quint8* block, size_t length) { bits.insert(bits.end(), block, block + length); });
    const unsigned clearCode = 1u << minCodeSize;
    const unsigned endCode = clearCode + 1;
    unsigned nextCode = endCode + 1;
    int codeSize = minCodeSize + 1;
    bool first = true;
    const size_t totalBits = bits.size() * 8;
    bits.resize(bits.size() + 3); // a code spans at most three bytes: read them as one word
    size_t position = 0;
    while (position + size_t(codeSize) <= totalBits) {
        const size_t byte = position / 8;
        const unsigned shift = position % 8;
        const unsigned mask = (1u << codeSize) - 1;
        quint32 word = bits[byte] | (quint32(bits[byte + 1]) << 8) | (quint32(bits[byte + 2]) << 16);
        const unsigned code = (word >> shift) & mask;
        if (code == endCode) {
            break;
        }
        if (code < clearCode) {
            word = (word & ~(mask << shift)) | (quint32(to[code]) << shift);
            bits[byte] = quint8(word);
            bits[byte + 1] = quint8(word >> 8);
            bits[byte + 2] = quint8(word >> 16);
        }
        position += size_t(codeSize);
        if (code == clearCode) {
            nextCode = endCode + 1;
            codeSize = minCodeSize + 1;
            first = true;
            continue;
        }
        if (!first && nextCode < 4096) {
            ++nextCode;
            if (nextCode == (1u << codeSize) && codeSize < 12) {
                ++codeSize;
            }
        }
        first = false;
    }
    // Back into the sub-blocks they came from.
    size_t taken = 0;
    eachBlock([&](quint8* block, size_t length) {
        std::memcpy(block, bits.data() + taken, length);
        taken += length;
    });
}

} // namespace

QList<QRgb> shareColourTable(QList<EncodedFrame>& frames)
{
    // Each colour counts the table bytes it would save in every frame that has it; the shared
    // table takes the colours that count most, after its transparent entry.
    const auto tableBytes = [](const EncodedFrame& frame) {
        return qint64(3) << colorTableBits(frame.palette.size());
    };
    std::vector<QSet<QRgb>> colours(size_t(frames.size()));
    QHash<QRgb, qint64> worth;
    for (qsizetype k = 0; k < frames.size(); ++k) {
        const EncodedFrame& frame = frames[k];
        for (qsizetype i = 0; i < frame.palette.size(); ++i) {
            if (i != frame.transparentIndex) {
                colours[size_t(k)].insert(frame.palette[i]);
            }
        }
        for (const QRgb colour : colours[size_t(k)]) {
            worth[colour] += tableBytes(frame);
        }
    }
    QList<QRgb> ranked = worth.keys();
    std::ranges::sort(
        ranked, [&worth](QRgb a, QRgb b) { return worth[a] != worth[b] ? worth[a] > worth[b] : a < b; });
    ranked.resize(std::min<qsizetype>(ranked.size(), 255));
    QHash<QRgb, int> rank;
    for (qsizetype i = 0; i < ranked.size(); ++i) {
        rank.insert(ranked[i], int(i) + 1);
    }

    // The frames drawn with it: every colour in it, and no index past what their codes can name.
    std::vector<qsizetype> sharing;
    QSet<QRgb> used;
    qint64 saved = 0;
    for (qsizetype k = 0; k < frames.size(); ++k) {
        const int limit = 1 << frames[k].minCodeSize;
        if (std::ranges::all_of(colours[size_t(k)],
                                [&](QRgb colour) { return rank.value(colour, limit) < limit; })) {
            sharing.push_back(k);
            saved += tableBytes(frames[k]);
            used.unite(colours[size_t(k)]);
        }
    }
    // Only the colours those frames use, in the same order: no index grows.
    QList<QRgb> table{QRgb(0)}; // the transparent entry
    QHash<QRgb, quint8> index;
    for (const QRgb colour : ranked) {
        if (used.contains(colour)) {
            index.insert(colour, quint8(table.size()));
            table.append(colour);
        }
    }
    if (saved <= (qint64(3) << colorTableBits(table.size()))) {
        return {};
    }
    for (const qsizetype k : sharing) {
        EncodedFrame& frame = frames[k];
        std::array<quint8, 256> to{};
        for (qsizetype i = 0; i < frame.palette.size(); ++i) {
            to[size_t(i)] = i == frame.transparentIndex ? 0 : index.value(frame.palette[i]);
        }
        renameLiterals(frame.compressed, frame.minCodeSize, to);
        frame.sharedTable = true;
        frame.transparentIndex = frame.transparentIndex >= 0 ? 0 : -1;
        frame.palette.clear();
    }
    return table;
}

QByteArray assembleGif(QSize screenSize, QList<EncodedFrame> frames, const QList<int>& delays)
{
    qsizetype total = 64;
    for (const EncodedFrame& frame : frames) {
        total += frame.compressed.size() + 3 * 256 + 32;
    }
    QByteArray out;
    out.reserve(total);
    appendGifHeader(out, screenSize, shareColourTable(frames));
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
