#pragma once

#include <QByteArray>
#include <QList>
#include <QRect>
#include <QRgb>
#include <QSize>

#include <span>
#include <vector>

namespace vantalo {

// One frame ready to be written: its rectangle on the logical screen, its own colour table,
// and its indices already LZW-compressed.
struct EncodedFrame
{
    QRect rect;
    QList<QRgb> palette;       // at most 256 colours
    int transparentIndex = -1; // the palette entry that lets the frame below show through
    int minCodeSize = 2;
    QByteArray compressed;    // LZW code stream in sub-blocks, with the terminating empty block
    bool sharedTable = false; // drawn with the GIF's global colour table, `palette` unused
};

// Hundredths of a second for each of `count` frames of `delaySeconds`: frame k ends at
// round(100 · (k + 1) · delay), so the whole animation lasts exactly count · delay even though
// each delay is whole hundredths (at 1/15 s: 7, 6, 7, 7, 6, 7, ...).
QList<int> gifDelays(qsizetype count, double delaySeconds);

// The palette's table size in bits (1 to 8) as GIF stores it.
int colorTableBits(qsizetype paletteSize);

// GIF LZW compression of `indices` (each below 2^minCodeSize), packed into sub-blocks.
QByteArray lzwCompress(std::span<const quint8> indices, int minCodeSize);

// How far apart two colours look: a weighted RGB distance in which the green difference counts
// most and red and blue trade weight with the mean red (the "redmean" approximation), squared. A
// grey step of n levels is about 9·n².
inline int perceptualDistanceSquared(QRgb a, QRgb b)
{
    const int meanRed = (qRed(a) + qRed(b)) >> 1;
    const int dr = qRed(a) - qRed(b);
    const int dg = qGreen(a) - qGreen(b);
    const int db = qBlue(a) - qBlue(b);
    return ((512 + meanRed) * dr * dr + 1024 * dg * dg + (767 - meanRed) * db * db) >> 8;
}

// The largest squared distance a pixel may be shown off by at lossy level 0 (none) to 100.
int lossyDistanceSquared(int level);

// What lossy compression may write at each pixel of a frame of `width` pixels a row: `wanted` is
// the index lossless compression would write, `target` the colour that index stands for (for the
// transparent index, the colour the picture below must keep), and `clearOk` says where the
// transparent index would show a colour close enough to the target. Each pixel is written as
// `scale` × `scale` of them.
struct LossyPixels
{
    std::span<const quint8> wanted;
    std::span<const QRgb> target;
    std::span<const quint8> clearOk;
    int width = 0;
    int scale = 1;
};

// LZW compression that continues a string with a pixel of a nearby colour where the exact one is
// not in the table: each written pixel is within `maxDistanceSquared` of its target, so the error
// never exceeds the limit however many frames follow. `written` receives the indices a decoder
// will read (at the scaled size; the copies of a pixel are alike).
QByteArray lzwCompressLossy(const LossyPixels& pixels, const QList<QRgb>& palette, int transparentIndex,
                            int minCodeSize, int maxDistanceSquared, std::vector<quint8>& written);

// A GIF written a piece at a time: the header (with the looping block), each frame with its
// graphic control extension (drawn over the frame before, its delay), and the trailer.
void appendGifHeader(QByteArray& out, QSize screenSize, const QList<QRgb>& globalTable = {});
void appendGifFrame(QByteArray& out, const EncodedFrame& frame, int delay);
constexpr char gifTrailer = 0x3b;

// A colour table for the whole GIF, and the frames whose colours all belong to it drawn with it
// instead of their own (`sharedTable`): a screen recording shows the same few hundred colours
// frame after frame, and each frame's own table takes up to 768 bytes. A frame moves to the
// shared table only where its codes keep their width, so its compressed data only has the
// colour each literal code names changed, never grows. Entry 0 is every frame's transparent
// one. Gives an empty table, and changes nothing, where sharing would not make the GIF smaller.
QList<QRgb> shareColourTable(QList<EncodedFrame>& frames);

// The whole file: GIF89a, a logical screen of `screenSize`, the looping block (loop count 0),
// then each frame with its graphic control extension (its delay; drawn over the frame before).
// Frames share a colour table where that makes the file smaller. Each frame's data is released
// as soon as it is in the file.
QByteArray assembleGif(QSize screenSize, QList<EncodedFrame> frames, const QList<int>& delays);

// Whether `bytes` is a whole GIF89a file: every block complete and the trailer its last byte. A
// write cut short fails this, whatever the cut.
bool isCompleteGif(std::span<const char> bytes);

} // namespace vantalo
