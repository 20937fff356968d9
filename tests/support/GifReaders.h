#pragma once

// GIF readers that are not the writer's, giflib's and Qt's, which give the frames as a viewer shows
// them (each drawn over the one before) and the delays in hundredths of a second; and a strict
// check of our own of every LZW code.
#include <QByteArray>
#include <QImage>
#include <QList>
#include <QString>

#include <expected>

namespace vantalo::testing {

struct ReadGif
{
    QList<QImage> frames; // Format_ARGB32, the logical screen's size
    QList<int> delays;
    int loopCount = -1; // from the NETSCAPE2.0 block (0: for ever), -1 without one: readWithEveryReader
};

std::expected<ReadGif, QString> readWithGiflib(const QByteArray& gif);
std::expected<ReadGif, QString> readWithQt(const QByteArray& gif);
// Refuses what some decoder would: a code wider or narrower than the table calls for, a code
// not yet in the table, a missing end code, data after it, too few or too many pixels; and what
// the writer never writes (GIF87a, interlacing, disposal beyond 1, frames outside the screen).
// Answers the loop count.
std::expected<int, QString> checkStrictly(const QByteArray& gif);

// The strict check, then giflib's frames, which Qt's must match pixel for pixel and delay for
// delay; the error names the check or the reader that refused or disagreed.
std::expected<ReadGif, QString> readWithEveryReader(const QByteArray& gif);

} // namespace vantalo::testing
