#include "HistoryFile.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>

#include <cmath>

namespace vantalo {

namespace {

QString dateText(const QDateTime& date)
{
    return date.toUTC().toString(QStringLiteral("yyyy-MM-dd'T'HH:mm:ss'Z'"));
}

std::optional<QDateTime> parseDate(const QString& text)
{
    // Exactly whole seconds in UTC with Z: a fraction or an offset makes the file unreadable. The
    // fields are taken as UTC directly: going through local time would lose the hour that daylight
    // saving skips.
    static const QRegularExpression form(
        QStringLiteral("^(\\d{4})-(\\d{2})-(\\d{2})T(\\d{2}):(\\d{2}):(\\d{2})Z$"));
    const QRegularExpressionMatch match = form.match(text);
    if (!match.hasMatch()) {
        return std::nullopt;
    }
    const auto field = [&match](int n) { return match.capturedView(n).toInt(); };
    const QDate day(field(1), field(2), field(3));
    const QTime time(field(4), field(5), field(6));
    if (!day.isValid() || !time.isValid()) {
        return std::nullopt;
    }
    return QDateTime(day, time, Qt::UTC);
}

// JSON text as the file writes it: forward slashes escaped too.
QString jsonString(const QString& text)
{
    QString out = QStringLiteral("\"");
    for (const QChar c : text) {
        switch (c.unicode()) {
        case '"':
            out += QStringLiteral("\\\"");
            break;
        case '\\':
            out += QStringLiteral("\\\\");
            break;
        case '/':
            out += QStringLiteral("\\/");
            break;
        case '\n':
            out += QStringLiteral("\\n");
            break;
        case '\r':
            out += QStringLiteral("\\r");
            break;
        case '\t':
            out += QStringLiteral("\\t");
            break;
        default:
            if (c.unicode() < 0x20) {
                out += QStringLiteral("\\u%1").arg(c.unicode(), 4, 16, QLatin1Char('0'));
            } else {
                out += c;
            }
        }
    }
    return out + QLatin1Char('"');
}

} // namespace

QString uuidText(const QUuid& id)
{
    return id.toString(QUuid::WithoutBraces).toUpper();
}

QByteArray encodeHistory(const QList<GifHistoryItem>& items)
{
    // Members in a fixed order, so the file is written by hand rather than through QJsonObject.
    // Stored values are only ever appended, never substituted into a format string: a "%1" in a
    // file name must stay a "%1".
    QString out = QStringLiteral("[");
    for (qsizetype i = 0; i < items.size(); ++i) {
        const GifHistoryItem& item = items[i];
        out += QStringLiteral("\n  {\n    \"id\" : ") + jsonString(uuidText(item.id)) +
               QStringLiteral(",\n    \"filename\" : ") + jsonString(item.filename) +
               QStringLiteral(",\n    \"createdAt\" : ") + jsonString(dateText(item.createdAt)) +
               QStringLiteral(",\n    \"fileSize\" : ") + QString::number(item.fileSize);
        if (item.uploadURL) {
            out += QStringLiteral(",\n    \"uploadURL\" : ") +
                   jsonString(item.uploadURL->toString(QUrl::FullyEncoded));
        }
        out += i + 1 < items.size() ? QStringLiteral("\n  },") : QStringLiteral("\n  }");
    }
    out += items.isEmpty() ? QStringLiteral("\n\n]") : QStringLiteral("\n]");
    return out.toUtf8();
}

bool isPlainFilename(const QString& name)
{
    // One path component inside the GIF directory, and text that survives being written as UTF-8.
    return !name.isEmpty() && name != QLatin1String(".") && name != QLatin1String("..") &&
           !name.contains(QLatin1Char('/')) && !name.contains(QLatin1Char('\\')) &&
           !name.contains(QChar(0)) && name.isValidUtf16();
}

std::optional<DecodedHistory> decodeHistory(const QByteArray& json)
{
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(json, &error);
    if (error.error != QJsonParseError::NoError || !document.isArray()) {
        return std::nullopt;
    }
    DecodedHistory decoded;
    for (const QJsonValue& value : document.array()) {
        if (!value.isObject()) {
            return std::nullopt;
        }
        const QJsonObject object = value.toObject();
        const QJsonValue id = object.value(QStringLiteral("id"));
        const QJsonValue filename = object.value(QStringLiteral("filename"));
        const QJsonValue createdAt = object.value(QStringLiteral("createdAt"));
        const QJsonValue fileSize = object.value(QStringLiteral("fileSize"));
        const QJsonValue uploadURL = object.value(QStringLiteral("uploadURL"));
        if (!id.isString() || !filename.isString() || !createdAt.isString() || !fileSize.isDouble()) {
            return std::nullopt;
        }
        const QUuid uuid(id.toString());
        const auto date = parseDate(createdAt.toString());
        if (uuid.isNull() || !date) {
            return std::nullopt;
        }
        const double size = fileSize.toDouble();
        if (size != std::floor(size)) {
            return std::nullopt;
        }
        // An entry that names a file outside the GIF directory, or holds what cannot be kept
        // exactly (a size beyond 64 bits, a broken surrogate), is left out; the others stay.
        const qint64 exactSize = fileSize.toInteger(0);
        if (!isPlainFilename(filename.toString()) || exactSize != fileSize.toInteger(1)) {
            ++decoded.ignored;
            continue;
        }
        GifHistoryItem item{uuid, filename.toString(), *date, exactSize, std::nullopt};
        if (uploadURL.isString()) {
            const QUrl url(uploadURL.toString(), QUrl::StrictMode);
            if (!url.isValid()) {
                return std::nullopt;
            }
            // A link is written back as its encoded text, which must read back as the same link.
            if (!uploadURL.toString().isValidUtf16() ||
                QUrl(url.toString(QUrl::FullyEncoded), QUrl::StrictMode) != url) {
                ++decoded.ignored;
                continue;
            }
            item.uploadURL = url;
        } else if (!uploadURL.isUndefined() && !uploadURL.isNull()) {
            return std::nullopt;
        }
        decoded.items.append(item);
    }
    return decoded;
}

} // namespace vantalo
