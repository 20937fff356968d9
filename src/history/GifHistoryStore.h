#pragma once

#include "app/HistoryStore.h"
#include "common/Console.h"

#include <QDir>
#include <QObject>
#include <QString>

namespace vantalo {

// The kept GIFs: a "gifs" directory and a "history.json" beside it, newest first. Nothing is held
// in memory; every operation reads the file afresh and every change writes it back whole,
// atomically (a crash or a full disk leaves the old file). A file that exists but cannot be read
// is never overwritten: before the first change it is moved aside, and one line says where. An
// entry that cannot be used (a file name outside the GIF directory, a size beyond 64 bits) is left
// out and the others are kept; the first change then keeps a copy of the file as it was.
class GifHistoryStore final : public QObject, public HistoryStore
{
    Q_OBJECT
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
    // A GIF in the desktop's trash, and where its entry stood.
    struct Trashed
    {
        GifHistoryItem item;
        qsizetype index = 0;
        QString pathInTrash;
    };
    // Moves the item's GIF to the desktop's trash and unlists it; where the trash cannot take it,
    // nothing changes and the failure says why.
    std::expected<Trashed, Failure> moveToTrash(const GifHistoryItem& item);
    // Takes a trashed GIF back out of the trash into its place in the list. False where it is no
    // longer in the trash (emptied meanwhile) or its name is taken again.
    bool restore(const Trashed& trashed);

    // Run once at start, before anything else uses the store: removes what an interrupted save left
    // beside the file, and lists the finished GIFs an interrupted add left unlisted (in the GIF
    // directory, or still in `temporaryDirectory`), each in its place by time.
    void recover(const QString& temporaryDirectory);

Q_SIGNALS:
    // The list was written anew (an entry added, deleted or given its link), by anyone: what
    // shows the history reads it again.
    void changed();

private:
    enum class FileState
    {
        missing,
        readable,
        unreadable,
    };
    struct Loaded
    {
        FileState state;
        QList<GifHistoryItem> items;
        int ignored;
    };
    Loaded load() const;
    // The list to change: the file's, or an empty one once an unreadable file is safely aside.
    std::optional<QList<GifHistoryItem>> loadForChange();
    void save(const QList<GifHistoryItem>& items);
    QString asidePath(const QString& kind) const;
    // Writes `bytes` into the GIF directory under a new name; the item is not listed yet.
    std::expected<GifHistoryItem, Failure> storeCopy(const QByteArray& bytes, const QDateTime& createdAt);

    QDir m_base;
    LinePrinter m_print;
};

} // namespace vantalo
