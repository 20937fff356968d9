#pragma once

// GIF readers that are not the writer's: giflib, Qt's and a strict reader of our own that
// checks every LZW code width. Each gives the frames as a viewer shows them (each drawn over the
// one before) and the delays in hundredths of a second.
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
    int loopCount = -1; // from the NETSCAPE2.0 block (0: for ever); -1 without one (strict reader only)
};

std::expected<ReadGif, QString> readWithGiflib(const QByteArray& gif);
std::expected<ReadGif, QString> readWithQt(const QByteArray& gif);
// Refuses what some decoder would: a code wider or narrower than the table calls for, a code
// not yet in the table, a missing end code, data after it, too few or too many pixels.
std::expected<ReadGif, QString> readStrict(const QByteArray& gif);

// All three readers, which must agree with each other on every pixel and delay; the error names
// the reader that refused or disagreed.
std::expected<ReadGif, QString> readWithEveryReader(const QByteArray& gif);

} // namespace vantalo::testing
