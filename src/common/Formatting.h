#pragma once

#include <QDateTime>
#include <QLocale>
#include <QString>

namespace vantalo {

// A file's size as file browsers show it: decimal units, whole kilobytes, one decimal above
// ("512 bytes", "834 kB", "2.4 MB").
QString fileSizeLabel(qint64 bytes, const QLocale& locale = QLocale());
// A size asked for, as round as it was given ("10 MB", "2.5 MB", "800 kB").
QString budgetLabel(qint64 bytes, const QLocale& locale = QLocale());

// When a GIF was made, in the user's locale: the date, then the time without seconds.
QString dateTimeLabel(const QDateTime& time, const QLocale& locale = QLocale());
// The output sizes by what they are, the same wherever one is chosen: 2 ("2× — sharp on HiDPI
// screens") or 1 ("1× — the screen's own pixels").
QString outputScaleName(int scale);

} // namespace vantalo
