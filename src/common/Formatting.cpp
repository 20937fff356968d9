#include "Formatting.h"

namespace vantalo {

QString fileSizeLabel(qint64 bytes, const QLocale& locale)
{
    const int decimals = bytes < 1000 * 1000 ? 0 : 1;
    return locale.formattedDataSize(bytes, decimals, QLocale::DataSizeSIFormat);
}

QString budgetLabel(qint64 bytes, const QLocale& locale)
{
    const int decimals = (bytes >= 1000 * 1000 ? bytes % (1000 * 1000) : bytes % 1000) == 0 ? 0 : 1;
    return locale.formattedDataSize(bytes, decimals, QLocale::DataSizeSIFormat);
}

QString dateTimeLabel(const QDateTime& time, const QLocale& locale)
{
    const QDateTime local = time.toLocalTime();
    // Some locales' short time format carries seconds; a list of recordings does not need them.
    QString timeFormat = locale.timeFormat(QLocale::ShortFormat);
    timeFormat.remove(QStringLiteral(":ss"));
    return locale.toString(local.date(), QLocale::ShortFormat) + QStringLiteral(", ") +
           locale.toString(local.time(), timeFormat);
}

QString outputScaleName(int scale)
{
    return scale == 1 ? QStringLiteral("1\u00d7 \u2014 the screen's own pixels")
                      : QStringLiteral("2\u00d7 \u2014 sharp on HiDPI screens");
}

} // namespace vantalo
