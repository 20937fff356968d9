#pragma once

#include <QByteArray>
#include <QList>
#include <QRect>
#include <QRgb>
#include <QSize>

#include <span>

namespace vantalo {

// One frame ready to be written: its rectangle on the logical screen, its own colour table,
// and its indices already LZW-compressed.
struct EncodedFrame
{
    QRect rect;
    QList<QRgb> palette;       // at most 256 colours
    int transparentIndex = -1; // the palette entry that lets the frame below show through
    int minCodeSize = 2;
    QByteArray compressed; // LZW code stream in sub-blocks, with the terminating empty block
};

// Hundredths of a second for each of `count` frames of `delaySeconds`: frame k ends at
// round(100 · (k + 1) · delay), so the whole animation lasts exactly count · delay even though
// each delay is whole hundredths (at 1/15 s: 7, 6, 7, 7, 6, 7, ...).
QList<int> gifDelays(qsizetype count, double delaySeconds);

// The palette's table size in bits (1 to 8) as GIF stores it.
int colorTableBits(qsizetype paletteSize);

// GIF LZW compression of `indices` (each below 2^minCodeSize), packed into sub-blocks.
QByteArray lzwCompress(std::span<const quint8> indices, int minCodeSize);

// The whole file: GIF89a, a logical screen of `screenSize`, the looping block (loop count 0),
// then each frame with its graphic control extension (its delay; drawn over the frame before).
// Each frame's data is released as soon as it is in the file.
QByteArray assembleGif(QSize screenSize, QList<EncodedFrame> frames, const QList<int>& delays);

// Whether `bytes` is a whole GIF89a file: every block complete and the trailer its last byte. A
// write cut short fails this, whatever the cut.
bool isCompleteGif(std::span<const char> bytes);

} // namespace vantalo
