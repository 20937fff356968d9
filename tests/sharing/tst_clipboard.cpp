// The clipboard as other X clients read it (xclip), on tests/with-xvfb.sh.
#include "sharing/ClipboardManager.h"

#include <QGuiApplication>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

using namespace vantalo;

namespace {
// xclip asks this process for the data, so the event loop keeps running while it waits.
QByteArray xclip(const QStringList& args)
{
    QProcess process;
    process.start(
        QStringLiteral("xclip"),
        QStringList{QStringLiteral("-selection"), QStringLiteral("clipboard"), QStringLiteral("-o")} + args);
    if (!QTest::qWaitFor([&] { return process.state() == QProcess::NotRunning; }, 10000)) {
        process.kill();
        return {};
    }
    return process.readAllStandardOutput();
}
} // namespace

class TestClipboard : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void gifAndLinkAsOtherClientsSeeThem()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("vantalo_A B.gif"));
        QByteArray gif("GIF89a\x00\x01\x02\xff binary", 17);
        ClipboardManager clipboard;
        clipboard.copyGIF(gif, path);

        const QString targets = QString::fromLatin1(xclip({QStringLiteral("-t"), QStringLiteral("TARGETS")}));
        QVERIFY2(targets.contains(QStringLiteral("image/gif")), qPrintable(targets));
        QVERIFY(targets.contains(QStringLiteral("text/uri-list")));
        QVERIFY(targets.contains(QStringLiteral("x-special/gnome-copied-files")));
        QCOMPARE(xclip({QStringLiteral("-t"), QStringLiteral("image/gif")}), gif);
        const QByteArray file = QUrl::fromLocalFile(path).toEncoded();
        QCOMPARE(xclip({QStringLiteral("-t"), QStringLiteral("text/uri-list")}).trimmed(), file);
        QCOMPARE(xclip({QStringLiteral("-t"), QStringLiteral("x-special/gnome-copied-files")}),
                 "copy\n" + file);

        // Without a file only the bytes are offered.
        clipboard.copyGIF(gif, std::nullopt);
        QVERIFY(!QString::fromLatin1(xclip({QStringLiteral("-t"), QStringLiteral("TARGETS")}))
                     .contains(QStringLiteral("uri-list")));

        // A link replaces the GIF: text alone.
        clipboard.copyLink(QUrl(QStringLiteral("https://cdn.example.com/gifs/vantalo_1.gif")));
        const QString linkTargets =
            QString::fromLatin1(xclip({QStringLiteral("-t"), QStringLiteral("TARGETS")}));
        QVERIFY2(!linkTargets.contains(QStringLiteral("image/gif")), qPrintable(linkTargets));
        QCOMPARE(xclip({}), QByteArray("https://cdn.example.com/gifs/vantalo_1.gif"));
    }
};

QTEST_MAIN(TestClipboard)
#include "tst_clipboard.moc"
