#include "GifHistoryStore.h"

#include "HistoryFile.h"

#include "recording/GifWriter.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>
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

} // namespace

QString GifHistoryStore::defaultBaseDirectory()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) + QStringLiteral("/Vantalo");
}

GifHistoryStore::GifHistoryStore(QString baseDirectory, LinePrinter print)
    : m_base(baseDirectory), m_print(std::move(print))
{
    // Failing here is not fatal: adding a GIF reports the file system's error later.
    if (m_base.mkpath(gifDirectoryName)) {
        QFile::setPermissions(m_base.filePath(gifDirectoryName), kUserOnlyDirectory);
    }
}

QString GifHistoryStore::filePath(const GifHistoryItem& item) const
{
    return m_base.filePath(gifDirectoryName + QLatin1Char('/') + item.filename);
}

QString GifHistoryStore::metadataPath() const
{
    return m_base.filePath(metadataFilename);
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
    auto decoded = decodeHistory(file.readAll());
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
    const QByteArray bytes = encodeHistory(items);
    if (file.write(bytes) != bytes.size()) {
        file.cancelWriting();
        file.commit();
        return;
    }
    if (file.commit()) {
        QFile::setPermissions(metadataPath(), kUserOnlyFile);
        Q_EMIT changed();
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

std::expected<GifHistoryStore::Trashed, Failure> GifHistoryStore::moveToTrash(const GifHistoryItem& item)
{
    const QList<GifHistoryItem> items = loadItems();
    const auto listed =
        std::ranges::find_if(items, [&](const GifHistoryItem& kept) { return kept.id == item.id; });
    if (listed == items.end() || !isPlainFilename(item.filename)) {
        return std::unexpected(Failure{QStringLiteral("the GIF is not in the history")});
    }
    // Qt puts the file beside the working directory when the home trash does not exist yet (a
    // new user's): it is made first, private to the user like the desktop's own.
    const QDir home(QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
                    QStringLiteral("/Trash"));
    for (const QString& part : {QStringLiteral("files"), QStringLiteral("info")}) {
        if (!home.exists(part) && home.mkpath(part)) {
            QFile::setPermissions(home.path(),
                                  QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
        }
    }
    QFile file(filePath(item));
    if (!file.moveToTrash()) {
        return std::unexpected(Failure{file.errorString()});
    }
    if (QFileInfo(file.fileName()).isRelative()) {
        QFile::rename(file.fileName(), filePath(item));
        return std::unexpected(Failure{QStringLiteral("no trash found for %1").arg(filePath(item))});
    }
    Trashed trashed{item, listed - items.begin(), file.fileName()};
    if (auto changed = loadForChange()) {
        changed->removeIf([&](const GifHistoryItem& kept) { return kept.id == item.id; });
        save(*changed);
    }
    return trashed;
}

bool GifHistoryStore::restore(const Trashed& trashed)
{
    const QString target = filePath(trashed.item);
    if (!isPlainFilename(trashed.item.filename) || QFile::exists(target) ||
        !QFile::rename(trashed.pathInTrash, target)) {
        return false;
    }
    // The trash's note of where the file came from goes with it (Trash/info beside Trash/files).
    const QFileInfo inTrash(trashed.pathInTrash);
    QFile::remove(inTrash.dir().filePath(QStringLiteral("../info/") + inTrash.fileName() +
                                         QStringLiteral(".trashinfo")));
    if (auto items = loadForChange()) {
        items->insert(std::clamp<qsizetype>(trashed.index, 0, items->size()), trashed.item);
        save(*items);
    }
    return true;
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
