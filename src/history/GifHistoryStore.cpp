#include "GifHistoryStore.h"

#include "recording/GifWriter.h"

#include <QDateTime>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSaveFile>
#include <QStandardPaths>

#include <algorithm>
#include <cmath>

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

bool GifHistoryStore::isPlainFilename(const QString& name)
{
    // One path component inside the GIF directory, and text that survives being written as UTF-8.
    return !name.isEmpty() && name != QLatin1String(".") && name != QLatin1String("..") &&
           !name.contains(QLatin1Char('/')) && !name.contains(QLatin1Char('\\')) &&
           !name.contains(QChar(0)) && name.isValidUtf16();
}

std::optional<GifHistoryStore::Decoded> GifHistoryStore::decode(const QByteArray& json)
{
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(json, &error);
    if (error.error != QJsonParseError::NoError || !document.isArray()) {
        return std::nullopt;
    }
    Decoded decoded;
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

GifHistoryStore::Loaded GifHistoryStore::load() const
{
    QFile file(metadataPath());
    if (!file.exists()) {
        return {FileState::missing, {}, 0};
    }
    if (!file.open(QIODevice::ReadOnly)) {
        return {FileState::unreadable, {}, 0};
    }
    auto decoded = decode(file.readAll());
    if (!decoded) {
        return {FileState::unreadable, {}, 0};
    }
    return {FileState::readable, std::move(decoded->items), decoded->ignored};
}

QList<GifHistoryItem> GifHistoryStore::loadItems() const
{
    return load().items;
}

QString GifHistoryStore::asidePath(const QString& kind) const
{
    return metadataPath() + QLatin1Char('.') + kind + QLatin1Char('-') +
           QDateTime::currentDateTimeUtc().toString(QStringLiteral("yyyyMMdd-HHmmss"));
}

std::optional<QList<GifHistoryItem>> GifHistoryStore::loadForChange()
{
    Loaded loaded = load();
    if (loaded.state == FileState::unreadable) {
        const QString aside = asidePath(QStringLiteral("corrupt"));
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
    if (loaded.ignored > 0) {
        // The change writes the usable entries only: the file as it was is kept beside it first.
        const QString aside = asidePath(QStringLiteral("skipped"));
        if (!QFile::copy(metadataPath(), aside)) {
            m_print(QStringLiteral("The GIF history file %1 has entries that cannot be used and could not "
                                   "be copied aside; it is left as it is")
                        .arg(metadataPath()));
            return std::nullopt;
        }
        m_print(QStringLiteral("%1 of the GIF history file's entries could not be used and were left out; "
                               "the file as it was is kept at %2")
                    .arg(loaded.ignored)
                    .arg(aside));
    }
    return std::move(loaded.items);
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

std::expected<GifHistoryItem, Failure> GifHistoryStore::storeCopy(const QByteArray& bytes,
                                                                  const QDateTime& createdAt)
{
    const QUuid id = QUuid::createUuid();
    GifHistoryItem item{id, QStringLiteral("vantalo_") + uuidText(id) + QStringLiteral(".gif"), createdAt,
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
    return item;
}

std::expected<GifHistoryItem, Failure> GifHistoryStore::addGif(const QString& gifPath)
{
    QFile source(gifPath);
    if (!source.open(QIODevice::ReadOnly)) {
        return std::unexpected(Failure{source.errorString()});
    }
    const QByteArray bytes = source.readAll();
    source.close();

    auto item = storeCopy(bytes, QDateTime::fromSecsSinceEpoch(QDateTime::currentSecsSinceEpoch(), Qt::UTC));
    if (!item) {
        return item;
    }
    QFile::remove(gifPath);

    if (auto items = loadForChange()) {
        items->prepend(*item);
        save(*items);
    }
    return item;
}

void GifHistoryStore::updateUploadURL(const QUuid& id, const QUrl& url)
{
    const auto sameId = [&id](const GifHistoryItem& item) { return item.id == id; };
    if (std::ranges::none_of(loadItems(), sameId)) {
        return; // nothing to change, nothing written
    }
    if (auto items = loadForChange()) {
        std::ranges::find_if(*items, sameId)->uploadURL = url;
        save(*items);
    }
}

void GifHistoryStore::deleteItem(const GifHistoryItem& item)
{
    if (isPlainFilename(item.filename)) {
        QFile::remove(filePath(item));
    }
    if (auto items = loadForChange()) {
        items->removeIf([&](const GifHistoryItem& kept) { return kept.id == item.id; });
        save(*items);
    }
}

void GifHistoryStore::recover(const QString& temporaryDirectory)
{
    // What a write interrupted by QSaveFile leaves behind ("history.json." and six characters).
    static const QRegularExpression staleSave(QStringLiteral("^history\\.json\\.[A-Za-z0-9]{6}$"));
    for (const QString& name :
         m_base.entryList({metadataFilename + QStringLiteral(".*")}, QDir::Files | QDir::Hidden)) {
        if (staleSave.match(name).hasMatch()) {
            QFile::remove(m_base.filePath(name));
        }
    }

    Loaded loaded = load();
    if (loaded.state == FileState::unreadable) {
        return; // the first change moves it aside; recovery waits for the next start
    }
    QList<GifHistoryItem> found;
    const auto listed = [&](const QString& filename, const QUuid& id) {
        const auto same = [&](const GifHistoryItem& item) {
            return item.filename == filename || item.id == id;
        };
        return std::ranges::any_of(loaded.items, same) || std::ranges::any_of(found, same);
    };
    const auto readIfComplete = [](const QString& path) -> std::optional<QByteArray> {
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly)) {
            return std::nullopt;
        }
        QByteArray bytes = file.readAll();
        return isCompleteGif(bytes) ? std::optional(std::move(bytes)) : std::nullopt;
    };

    // A GIF already copied into the GIF directory whose entry was never saved.
    static const QRegularExpression keptName(
        QStringLiteral("^vantalo_([0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12})\\.gif$"));
    const QDir gifs(m_base.filePath(gifDirectoryName));
    for (const QFileInfo& info : gifs.entryInfoList({QStringLiteral("vantalo_*.gif")}, QDir::Files)) {
        const auto match = keptName.match(info.fileName());
        const QUuid id(match.captured(1));
        if (!match.hasMatch() || listed(info.fileName(), id)) {
            continue;
        }
        if (const auto bytes = readIfComplete(info.filePath())) {
            const QDateTime modified = info.lastModified().toUTC();
            found.append({id, info.fileName(), modified.addMSecs(-modified.time().msec()), bytes->size(),
                          std::nullopt});
        }
    }

    // A finished recording still in the temporary directory: adopted, unless the GIF directory
    // already holds the same bytes (the copy was made, the original not yet removed).
    static const QRegularExpression recordedName(QStringLiteral("^vantalo_(\\d{1,12})\\.gif$"));
    const QDir temporary(temporaryDirectory);
    for (const QFileInfo& info : temporary.entryInfoList({QStringLiteral("vantalo_*.gif")}, QDir::Files)) {
        const auto match = recordedName.match(info.fileName());
        if (!match.hasMatch() || info.ownerId() != QFileInfo(m_base.path()).ownerId()) {
            continue;
        }
        const auto bytes = readIfComplete(info.filePath());
        if (!bytes) {
            continue;
        }
        const auto sameBytes = [&](const GifHistoryItem& item) {
            if (item.fileSize != bytes->size()) {
                return false;
            }
            QFile kept(filePath(item));
            return kept.open(QIODevice::ReadOnly) && kept.readAll() == *bytes;
        };
        if (std::ranges::none_of(loaded.items, sameBytes) && std::ranges::none_of(found, sameBytes)) {
            auto item =
                storeCopy(*bytes, QDateTime::fromSecsSinceEpoch(match.captured(1).toLongLong(), Qt::UTC));
            if (!item) {
                continue; // left where it is for the next start
            }
            found.append(*item);
        }
        QFile::remove(info.filePath());
    }

    if (found.isEmpty()) {
        return;
    }
    // Each in its place by time, newest first; the listed entries keep their order.
    std::ranges::stable_sort(found, std::greater{}, &GifHistoryItem::createdAt);
    QList<GifHistoryItem> items = std::move(loaded.items);
    qsizetype at = 0;
    for (const GifHistoryItem& item : found) {
        while (at < items.size() && items[at].createdAt >= item.createdAt) {
            ++at;
        }
        items.insert(at++, item);
    }
    if (loaded.ignored > 0 && !loadForChange()) {
        return;
    }
    save(items);
    m_print(QStringLiteral("Recovered %1 GIF%2 missing from the history")
                .arg(found.size())
                .arg(found.size() == 1 ? QString() : QStringLiteral("s")));
}

} // namespace vantalo
