#include "history/GifHistoryStore.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

using namespace vantalo;

namespace {
QString writeTempGif(const QTemporaryDir& dir, const QByteArray& bytes, const QString& name)
{
    const QString path = dir.filePath(name);
    QFile file(path);
    file.open(QIODevice::WriteOnly);
    file.write(bytes);
    return path;
}

QByteArray readAll(const QString& path)
{
    QFile file(path);
    file.open(QIODevice::ReadOnly);
    return file.readAll();
}
} // namespace

class TestHistoryStore : public QObject
{
    Q_OBJECT

    QStringList m_printed;
    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<GifHistoryStore> m_store;

    std::unique_ptr<GifHistoryStore> storeAt(const QString& base)
    {
        return std::make_unique<GifHistoryStore>(base, [this](const QString& line) { m_printed << line; });
    }

private Q_SLOTS:
    void init()
    {
        m_printed.clear();
        m_dir = std::make_unique<QTemporaryDir>();
        m_store = storeAt(m_dir->filePath(QStringLiteral("Vantalo")));
    }

    void addingKeepsTheGifAndListsItFirst()
    {
        const QString first = writeTempGif(*m_dir, "GIF89a one", QStringLiteral("vantalo_1.gif"));
        const auto a = m_store->addGif(first);
        QVERIFY(a);
        QVERIFY(!QFile::exists(first));
        QCOMPARE(readAll(m_store->filePath(*a)), QByteArray("GIF89a one"));
        QCOMPARE(QFileInfo(m_store->filePath(*a)).path(), m_dir->filePath(QStringLiteral("Vantalo/gifs")));
        QVERIFY(QRegularExpression(
                    QStringLiteral(
                        "^vantalo_[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}\\.gif$"))
                    .match(a->filename)
                    .hasMatch());
        QCOMPARE(a->fileSize, 10);
        // Readable by the user alone.
        const auto others = QFile::ReadGroup | QFile::ReadOther | QFile::WriteGroup | QFile::WriteOther;
        QCOMPARE(QFile::permissions(m_store->filePath(*a)) & others, QFile::Permissions());
        QCOMPARE(QFile::permissions(m_dir->filePath(QStringLiteral("Vantalo/gifs"))) &
                     (others | QFile::ExeGroup | QFile::ExeOther),
                 QFile::Permissions());

        const auto b = m_store->addGif(writeTempGif(*m_dir, "GIF89a two", QStringLiteral("vantalo_2.gif")));
        QVERIFY(b);

        // The file as another reader sees it: an array, newest first, members in their order.
        const QByteArray json = readAll(m_store->metadataPath());
        const QJsonArray array = QJsonDocument::fromJson(json).array();
        QCOMPARE(array.size(), 2);
        QCOMPARE(array[0].toObject().value(QStringLiteral("id")).toString(),
                 GifHistoryStore::uuidText(b->id));
        QCOMPARE(array[1].toObject().value(QStringLiteral("fileSize")).toInt(), 10);
        const QString text = QString::fromUtf8(json);
        QVERIFY(text.indexOf(QStringLiteral("\"id\" : ")) < text.indexOf(QStringLiteral("\"filename\" : ")));
        QVERIFY(text.indexOf(QStringLiteral("\"filename\" : ")) <
                text.indexOf(QStringLiteral("\"createdAt\" : ")));
        QVERIFY(text.indexOf(QStringLiteral("\"createdAt\" : ")) <
                text.indexOf(QStringLiteral("\"fileSize\" : ")));
        QVERIFY(!text.contains(QStringLiteral("uploadURL")));
        const QString created = array[0].toObject().value(QStringLiteral("createdAt")).toString();
        QVERIFY2(QRegularExpression(QStringLiteral("^\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\dZ$"))
                     .match(created)
                     .hasMatch(),
                 qPrintable(created));

        const QList<GifHistoryItem> items = m_store->loadItems();
        QCOMPARE(items.size(), 2);
        QCOMPARE(items[0].id, b->id);
        QCOMPARE(items[0].createdAt, b->createdAt); // whole seconds survive the round trip
        QCOMPARE(items[0].createdAt.time().msec(), 0);

        // A GIF that cannot be read fails with the file system's reason and changes nothing.
        const auto missing = m_store->addGif(m_dir->filePath(QStringLiteral("nope.gif")));
        QVERIFY(!missing);
        QVERIFY(!missing.error().description.isEmpty());
        QCOMPARE(readAll(m_store->metadataPath()), json);
    }

    void updatesAndDeletes()
    {
        const auto a = m_store->addGif(writeTempGif(*m_dir, "a", QStringLiteral("a.gif")));
        const auto b = m_store->addGif(writeTempGif(*m_dir, "b", QStringLiteral("b.gif")));
        const QByteArray before = readAll(m_store->metadataPath());
        m_store->updateUploadURL(QUuid::createUuid(), QUrl(QStringLiteral("https://x.example/y.gif")));
        QCOMPARE(readAll(m_store->metadataPath()), before); // unknown id: byte for byte the same

        m_store->updateUploadURL(a->id, QUrl(QStringLiteral("https://cdn.example.com/gifs/a.gif")));
        const QString text = QString::fromUtf8(readAll(m_store->metadataPath()));
        QVERIFY2(
            text.contains(QStringLiteral("\"uploadURL\" : \"https:\\/\\/cdn.example.com\\/gifs\\/a.gif\"")),
            qPrintable(text));
        QCOMPARE(m_store->loadItems().at(1).uploadURL,
                 QUrl(QStringLiteral("https://cdn.example.com/gifs/a.gif")));

        // Deleting an item whose file is already gone still removes its entry.
        QFile::remove(m_store->filePath(*b));
        m_store->deleteItem(*b);
        QCOMPARE(m_store->loadItems().size(), 1);
        m_store->deleteItem(*a);
        QVERIFY(!QFile::exists(m_store->filePath(*a)));
        QVERIFY(m_store->loadItems().isEmpty());
        QCOMPARE(QJsonDocument::fromJson(readAll(m_store->metadataPath())).array().size(), 0);
    }

    void readingRules_data()
    {
        QTest::addColumn<QByteArray>("json");
        QTest::addColumn<int>("count");
        const QByteArray good =
            R"({"id":"6B1F0C2A-9D4E-4A7B-8C3D-2E5F7A9B1C0D","filename":"vantalo_x.gif","createdAt":"2024-05-01T09:30:12Z","fileSize":12})";
        QTest::newRow("one entry") << QByteArray("[" + good + "]") << 1;
        QTest::newRow("null link and other members")
            << QByteArray(
                   R"([{"id":"6B1F0C2A-9D4E-4A7B-8C3D-2E5F7A9B1C0D","filename":"f.gif","createdAt":"2024-05-01T09:30:12Z","fileSize":3,"uploadURL":null,"extra":true}])")
            << 1;
        QTest::newRow("fractional seconds")
            << QByteArray(
                   R"([{"id":"6B1F0C2A-9D4E-4A7B-8C3D-2E5F7A9B1C0D","filename":"f.gif","createdAt":"2024-05-01T09:30:12.5Z","fileSize":3}])")
            << 0;
        QTest::newRow("one bad entry empties it")
            << QByteArray(
                   "[" + good +
                   R"(,{"id":"x","filename":"f.gif","createdAt":"2024-05-01T09:30:12Z","fileSize":3}])")
            << 0;
        QTest::newRow("not an array") << QByteArray("{\"items\":[]}") << 0;
        QTest::newRow("missing size")
            << QByteArray(
                   R"([{"id":"6B1F0C2A-9D4E-4A7B-8C3D-2E5F7A9B1C0D","filename":"f.gif","createdAt":"2024-05-01T09:30:12Z"}])")
            << 0;
        QTest::newRow("not JSON") << QByteArray("[{,") << 0;
    }
    void readingRules()
    {
        QFETCH(QByteArray, json);
        QFETCH(int, count);
        QFile file(m_store->metadataPath());
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(json);
        file.close();
        QCOMPARE(m_store->loadItems().size(), count);
    }

    void anUnreadableFileIsMovedAsideNotOverwritten()
    {
        const QByteArray corrupt = "[{\"id\": \"truncated";
        QFile file(m_store->metadataPath());
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(corrupt);
        file.close();
        QVERIFY(m_store->loadItems().isEmpty());
        QVERIFY(m_printed.isEmpty()); // reading alone changes nothing

        const auto added = m_store->addGif(writeTempGif(*m_dir, "GIF89a", QStringLiteral("n.gif")));
        QVERIFY(added);
        const QStringList aside = QDir(m_dir->filePath(QStringLiteral("Vantalo")))
                                      .entryList({QStringLiteral("history.json.corrupt-*")});
        QCOMPARE(aside.size(), 1);
        QCOMPARE(readAll(m_dir->filePath(QStringLiteral("Vantalo/") + aside.first())), corrupt);
        QCOMPARE(m_printed.size(), 1);
        QVERIFY2(m_printed.first().contains(aside.first()), qPrintable(m_printed.first()));
        QCOMPARE(m_store->loadItems().size(), 1);
    }

    void aFullDiskLeavesTheOldFileWhole()
    {
        // A 64 KiB file system, filled up after the first GIF.
        const QString mountPoint = m_dir->filePath(QStringLiteral("small"));
        QDir().mkpath(mountPoint);
        if (QProcess::execute(QStringLiteral("mount"),
                              {QStringLiteral("-t"), QStringLiteral("tmpfs"), QStringLiteral("-o"),
                               QStringLiteral("size=64k"), QStringLiteral("tmpfs"), mountPoint}) != 0) {
            QSKIP("cannot mount a small file system here (needs root)");
        }
        const auto unmount = qScopeGuard([&] { QProcess::execute(QStringLiteral("umount"), {mountPoint}); });
        auto store = storeAt(mountPoint + QStringLiteral("/Vantalo"));
        QVERIFY(store->addGif(writeTempGif(*m_dir, QByteArray(1000, 'g'), QStringLiteral("1.gif"))));
        const QByteArray before = readAll(store->metadataPath());
        QFile filler(mountPoint + QStringLiteral("/filler"));
        QVERIFY(filler.open(QIODevice::WriteOnly));
        while (filler.write(QByteArray(4096, 'x')) == 4096 && filler.flush()) {
        }
        filler.close();

        // The GIF itself no longer fits: a clear failure, and the history is as it was.
        const auto failed =
            store->addGif(writeTempGif(*m_dir, QByteArray(20000, 'g'), QStringLiteral("2.gif")));
        QVERIFY(!failed);
        QVERIFY(QFile::exists(m_dir->filePath(QStringLiteral("2.gif")))); // the user's GIF is still there
        QCOMPARE(readAll(store->metadataPath()), before);

        // A metadata rewrite that cannot be completed leaves the old file whole.
        store->updateUploadURL(store->loadItems().first().id,
                               QUrl(QStringLiteral("https://x.example/") + QString(3000, QLatin1Char('a'))));
        QCOMPARE(readAll(store->metadataPath()), before);
    }
};

QTEST_GUILESS_MAIN(TestHistoryStore)
#include "tst_historystore.moc"
