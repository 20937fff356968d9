#include "GifHistoryStore.h"

#include <QDateTime>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSaveFile>
#include <QStandardPaths>

namespace vantalo {

namespace {

constexpr auto kUserOnlyFile = QFileDevice::ReadOwner | QFileDevice::WriteOwner;
constexpr auto kUserOnlyDirectory = QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner;

QString dateText(const QDateTime& date)
{
    return date.toUTC().toString(QStringLiteral("yyyy-MM-dd'T'HH:mm:ss'Z'"));
}

std::optional<QDateTime> parseDate(const QString& text)
{
    // Exactly whole seconds in UTC with Z: a fraction or an offset makes the file unreadable.
    static const QRegularExpression form(QStringLiteral("^\\d{4}-\\d{2}-\\d{2}T\\d{2}:\\d{2}:\\d{2}Z$"));
    if (!form.match(text).hasMatch()) {
        return std::nullopt;
    }
    QDateTime date = QDateTime::fromString(text, QStringLiteral("yyyy-MM-dd'T'HH:mm:ss'Z'"));
    if (!date.isValid()) {
        return std::nullopt;
    }
    date.setTimeSpec(Qt::UTC);
    return date;
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

QString GifHistoryStore::defaultBaseDirectory()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) + QStringLiteral("/Vantalo");
}

GifHistoryStore::GifHistoryStore(QString baseDirectory, LinePrinter print)
    : m_base(std::move(baseDirectory)), m_print(std::move(print))
{
    // Failing here is not fatal: adding a GIF reports the file system's error later.
    if (m_base.mkpath(gifDirectoryName)) {
        QFile::setPermissions(m_base.filePath(gifDirectoryName), kUserOnlyDirectory);
    }
}

QString GifHistoryStore::uuidText(const QUuid& id)
{
    return id.toString(QUuid::WithoutBraces).toUpper();
}

QString GifHistoryStore::filePath(const GifHistoryItem& item) const
{
    return m_base.filePath(gifDirectoryName + QLatin1Char('/') + item.filename);
}

QString GifHistoryStore::metadataPath() const
{
    return m_base.filePath(metadataFilename);
}

QByteArray GifHistoryStore::encode(const QList<GifHistoryItem>& items)
{
    // Members in a fixed order, so the file is written by hand rather than through QJsonObject.
    QString out = QStringLiteral("[");
    for (qsizetype i = 0; i < items.size(); ++i) {
        const GifHistoryItem& item = items[i];
        out += QStringLiteral("\n  {\n    \"id\" : %1,\n    \"filename\" : %2,\n    \"createdAt\" : %3,\n"
                              "    \"fileSize\" : %4")
                   .arg(jsonString(uuidText(item.id)), jsonString(item.filename),
                        jsonString(dateText(item.createdAt)))
                   .arg(item.fileSize);
        if (item.uploadURL) {
            out += QStringLiteral(",\n    \"uploadURL\" : ") +
                   jsonString(item.uploadURL->toString(QUrl::FullyEncoded));
        }
        out += i + 1 < items.size() ? QStringLiteral("\n  },") : QStringLiteral("\n  }");
    }
    out += items.isEmpty() ? QStringLiteral("\n\n]") : QStringLiteral("\n]");
    return out.toUtf8();
}

std::optional<QList<GifHistoryItem>> GifHistoryStore::decode(const QByteArray& json)
{
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(json, &error);
    if (error.error != QJsonParseError::NoError || !document.isArray()) {
        return std::nullopt;
    }
    QList<GifHistoryItem> items;
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
        const double size = fileSize.toDouble();
        if (uuid.isNull() || !date || size != std::floor(size)) {
            return std::nullopt;
        }
        GifHistoryItem item{uuid, filename.toString(), *date, static_cast<qint64>(size), std::nullopt};
        if (uploadURL.isString()) {
            const QUrl url(uploadURL.toString(), QUrl::StrictMode);
            if (!url.isValid()) {
                return std::nullopt;
            }
            item.uploadURL = url;
        } else if (!uploadURL.isUndefined() && !uploadURL.isNull()) {
            return std::nullopt;
        }
        items.append(item);
    }
    return items;
}

QList<GifHistoryItem> GifHistoryStore::load(FileState* state) const
{
    QFile file(metadataPath());
    if (!file.exists()) {
        *state = FileState::missing;
        return {};
    }
    if (!file.open(QIODevice::ReadOnly)) {
        *state = FileState::unreadable;
        return {};
    }
    const auto items = decode(file.readAll());
    *state = items ? FileState::readable : FileState::unreadable;
    return items.value_or(QList<GifHistoryItem>{});
}

QList<GifHistoryItem> GifHistoryStore::loadItems() const
{
    FileState state{};
    return load(&state);
}

std::optional<QList<GifHistoryItem>> GifHistoryStore::loadForChange()
{
    FileState state{};
    QList<GifHistoryItem> items = load(&state);
    if (state != FileState::unreadable) {
        return items;
    }
    const QString aside = metadataPath() + QStringLiteral(".corrupt-") +
                          QDateTime::currentDateTimeUtc().toString(QStringLiteral("yyyyMMdd-HHmmss"));
    if (!QFile::rename(metadataPath(), aside)) {
        // Not even that: leave the file alone and the change unrecorded.
        m_print(QStringLiteral("The GIF history file %1 cannot be read and could not be moved aside; "
                               "it is left as it is")
                    .arg(metadataPath()));
        return std::nullopt;
    }
    m_print(QStringLiteral("The GIF history file could not be read; it was moved to %1").arg(aside));
    return QList<GifHistoryItem>{};
}

void GifHistoryStore::save(const QList<GifHistoryItem>& items)
{
    // Written beside the old file, then renamed over it: never half a file. Unbuffered, because a
    // write that only fails in QSaveFile's final flush is not noticed, and an empty file would
    // replace the old one.
    QSaveFile file(metadataPath());
    if (!file.open(QIODevice::WriteOnly | QIODevice::Unbuffered)) {
        return;
    }
    const QByteArray bytes = encode(items);
    if (file.write(bytes) != bytes.size()) {
        file.cancelWriting();
        file.commit();
        return;
    }
    if (file.commit()) {
        QFile::setPermissions(metadataPath(), kUserOnlyFile);
    }
}

std::expected<GifHistoryItem, Failure> GifHistoryStore::addGif(const QString& gifPath)
{
    QFile source(gifPath);
    if (!source.open(QIODevice::ReadOnly)) {
        return std::unexpected(Failure{source.errorString()});
    }
    const QByteArray bytes = source.readAll();
    source.close();

    const QUuid id = QUuid::createUuid();
    GifHistoryItem item{id, QStringLiteral("vantalo_%1.gif").arg(uuidText(id)),
                        QDateTime::fromSecsSinceEpoch(QDateTime::currentSecsSinceEpoch(), Qt::UTC),
                        bytes.size(), std::nullopt};
    QFile target(filePath(item));
    if (!target.open(QIODevice::WriteOnly | QIODevice::Truncate, kUserOnlyFile)) {
        return std::unexpected(Failure{target.errorString()});
    }
    if (target.write(bytes) != bytes.size() || !target.flush()) {
        const QString reason = target.errorString();
        target.close();
        target.remove();
        return std::unexpected(Failure{reason});
    }
    target.close();
    QFile::remove(gifPath);

    if (auto items = loadForChange()) {
        items->prepend(item);
        save(*items);
    }
    return item;
}

void GifHistoryStore::updateUploadURL(const QUuid& id, const QUrl& url)
{
    FileState state{};
    QList<GifHistoryItem> items = load(&state);
    const auto it =
        std::find_if(items.begin(), items.end(), [&](const GifHistoryItem& item) { return item.id == id; });
    if (it == items.end()) {
        return; // nothing to change, nothing written
    }
    it->uploadURL = url;
    save(items);
}

void GifHistoryStore::deleteItem(const GifHistoryItem& item)
{
    QFile::remove(filePath(item));
    if (auto items = loadForChange()) {
        items->removeIf([&](const GifHistoryItem& kept) { return kept.id == item.id; });
        save(*items);
    }
}

} // namespace vantalo
