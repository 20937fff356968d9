#pragma once

// GIF readers that are not the writer's, a strict one of our own over giflib's block walk and Qt's,
// which give the frames as a viewer shows them (each drawn over the one before) and the delays in
// hundredths of a second.
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
    int loopCount = -1;    // from the NETSCAPE2.0 block (0: for ever), -1 without one: readStrictly
    QList<int> tableSizes; // entries of each frame's colour table: readStrictly
};

std::expected<ReadGif, QString> readWithQt(const QByteArray& gif);
// Refuses what some decoder would: a code wider or narrower than the table calls for, a code
// not yet in the table, a missing end code, data after it, too few or too many pixels; and what
// the writer never writes (GIF87a, interlacing, disposal beyond 1, frames outside the screen).
std::expected<ReadGif, QString> readStrictly(const QByteArray& gif);

// The strict reader's frames, which Qt's must match pixel for pixel and delay for delay; the
// error names the reader that refused or disagreed.
std::expected<ReadGif, QString> readWithEveryReader(const QByteArray& gif);

} // namespace vantalo::testing
