#pragma once

#include "HistoryStore.h"
#include "common/Console.h"

#include <QDir>
#include <QString>

namespace vantalo {

// The kept GIFs: a "gifs" directory and a "history.json" beside it, newest first. Nothing is held
// in memory; every operation reads the file afresh and every change writes it back whole,
// atomically (a crash or a full disk leaves the old file). A file that exists but cannot be read
// is never overwritten: before the first change it is moved aside, and one line says where.
class GifHistoryStore final : public HistoryStore
{
public:
    static inline const QString gifDirectoryName = QStringLiteral("gifs");
    static inline const QString metadataFilename = QStringLiteral("history.json");

    // The application's data directory + "/Vantalo".
    static QString defaultBaseDirectory();

    explicit GifHistoryStore(QString baseDirectory = defaultBaseDirectory(),
                             LinePrinter print = stdoutPrinter());

    QString baseDirectory() const { return m_base.path(); }
    QString filePath(const GifHistoryItem& item) const override;
    QString metadataPath() const;

    QList<GifHistoryItem> loadItems() const;
    std::expected<GifHistoryItem, Failure> addGif(const QString& gifPath) override;
    void updateUploadURL(const QUuid& id, const QUrl& url);
    void deleteItem(const GifHistoryItem& item);

    // The file format, both ways (exposed for tests and tools).
    static QByteArray encode(const QList<GifHistoryItem>& items);
    static std::optional<QList<GifHistoryItem>> decode(const QByteArray& json);
    static QString uuidText(const QUuid& id);

private:
    enum class FileState
    {
        missing,
        readable,
        unreadable,
    };
    QList<GifHistoryItem> load(FileState* state) const;
    // The list to change: the file's, or an empty one once an unreadable file is safely aside.
    std::optional<QList<GifHistoryItem>> loadForChange();
    void save(const QList<GifHistoryItem>& items);

    QDir m_base;
    LinePrinter m_print;
};

} // namespace vantalo
