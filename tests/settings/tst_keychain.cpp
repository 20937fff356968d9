// The credential store against a real Secret Service (gnome-keyring in a private D-Bus session,
// started by with-keyring.sh), and against sessions where no keyring answers.
#include "settings/KeychainStore.h"
#include "settings/QtKeychainSecretStore.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QProcess>
#include <QTest>

using namespace vantalo;
using namespace std::chrono_literals;

namespace {
// Run in a child process: one load and one save, reporting what came back and what was printed.
int runProbe()
{
    QStringList printed;
    QtKeychainSecretStore secrets(
        keychainService, [&printed](const QString& line) { printed << line; }, 1500ms);
    KeychainStore keychain(secrets);
    QElapsedTimer clock;
    clock.start();
    const auto loaded = keychain.loadCredential(CredentialKey::accessKeyId);
    const bool saved = keychain.saveCredential(CredentialKey::accessKeyId, QStringLiteral("AKID"));
    std::printf("loaded=%s saved=%d ms=%lld lines=%lld\n", loaded ? "yes" : "no", saved ? 1 : 0,
                static_cast<long long>(clock.elapsed()), static_cast<long long>(printed.size()));
    for (const QString& line : printed) {
        std::printf("line=%s\n", qPrintable(line));
    }
    return 0;
}
} // namespace

class TestKeychain : public QObject
{
    Q_OBJECT

    // secret-tool's standard output (stderr joined for "search"), given `input` on its standard input.
    static QString secretTool(const QStringList& arguments, const QByteArray& input = {})
    {
        QProcess tool;
        tool.start(QStringLiteral("secret-tool"), arguments);
        tool.write(input);
        tool.closeWriteChannel();
        tool.waitForFinished(10000);
        return QString::fromUtf8(tool.readAllStandardOutput() + tool.readAllStandardError()).trimmed();
    }

    QString probe(const QString& shellPrefix)
    {
        QProcess process;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("VANTALO_KEYCHAIN_PROBE"), QStringLiteral("1"));
        process.setProcessEnvironment(env);
        process.start(QStringLiteral("bash"), {QStringLiteral("-c"), shellPrefix + QStringLiteral(" \"$0\""),
                                               QCoreApplication::applicationFilePath()});
        process.waitForFinished(60000);
        return QString::fromUtf8(process.readAllStandardOutput());
    }

private Q_SLOTS:
    void initTestCase()
    {
        if (!qEnvironmentVariableIsSet("VANTALO_TEST_KEYRING")) {
            QSKIP("needs the keyring session of tests/with-keyring.sh");
        }
    }

    void roundTripThroughTheKeyring()
    {
        QStringList printed;
        QtKeychainSecretStore secrets(keychainService, [&printed](const QString& line) { printed << line; });
        KeychainStore keychain(secrets);

        QVERIFY(!keychain.loadCredential(CredentialKey::secretAccessKey));
        QVERIFY(keychain.saveCredential(CredentialKey::secretAccessKey, QStringLiteral("first")));
        QVERIFY(keychain.saveCredential(CredentialKey::secretAccessKey,
                                        QStringLiteral("wJalr/K7MDENG+bPxRfi \u00e9")));
        QCOMPARE(keychain.loadCredential(CredentialKey::secretAccessKey),
                 QStringLiteral("wJalr/K7MDENG+bPxRfi \u00e9"));
        QVERIFY(!keychain.loadCredential(CredentialKey::accessKeyId));

        // An empty credential is stored and read back as empty, not as missing.
        QVERIFY(keychain.saveCredential(CredentialKey::accessKeyId, QString()));
        const auto empty = keychain.loadCredential(CredentialKey::accessKeyId);
        QVERIFY(empty.has_value());
        QVERIFY(empty->isEmpty());
        QVERIFY2(printed.isEmpty(), qPrintable(printed.join('\n')));

        // Saving twice left one item for the account, in the keyring itself.
        const QString items = secretTool({QStringLiteral("search"), QStringLiteral("--all"),
                                          QStringLiteral("user"), QStringLiteral("aws-secret-access-key")});
        QCOMPARE(items.count(QStringLiteral("[/")), 1);
        // Other keyring tools read the secret as it was typed.
        QCOMPARE(
            secretTool({QStringLiteral("lookup"), QStringLiteral("user"),
                        QStringLiteral("aws-secret-access-key"), QStringLiteral("server"), keychainService}),
            QStringLiteral("wJalr/K7MDENG+bPxRfi \u00e9"));
    }

    void credentialsSavedAsBase64AreReadAndRewrittenAsText()
    {
        // What an earlier version left: the bytes as base64 text, marked type=base64.
        const QStringList item{QStringLiteral("user"), QStringLiteral("aws-access-key-id"),
                               QStringLiteral("server"), keychainService};
        secretTool(QStringList{QStringLiteral("clear")} + item);
        QCOMPARE(secretTool(QStringList{QStringLiteral("store"), QStringLiteral("--label=old")} + item +
                                QStringList{QStringLiteral("type"), QStringLiteral("base64")},
                            QByteArray("AKIA\xc3\xa9XAMPLE").toBase64()),
                 QString());
        QtKeychainSecretStore secrets(keychainService, [](const QString&) {});
        KeychainStore keychain(secrets);
        QCOMPARE(keychain.loadCredential(CredentialKey::accessKeyId), QStringLiteral("AKIA\u00e9XAMPLE"));
        QCOMPARE(secretTool(QStringList{QStringLiteral("lookup")} + item),
                 QStringLiteral("AKIA\u00e9XAMPLE"));
        const QString all = secretTool(QStringList{QStringLiteral("search"), QStringLiteral("--all")} + item);
        QCOMPARE(all.count(QStringLiteral("[/")), 1);
        QVERIFY2(all.contains(QStringLiteral("attribute.type = plaintext")), qPrintable(all));
        QCOMPARE(keychain.loadCredential(CredentialKey::accessKeyId), QStringLiteral("AKIA\u00e9XAMPLE"));
    }

    // No keyring reads as absent and saves false, with one line: at once where there is no
    // Secret Service, at the time limit of each of the three jobs (read, delete, add) where it
    // never answers (that service is stopped once the probe is done, so the session ends).
    void noKeyringAnswers()
    {
        const QString hang = QStringLiteral(QT_TESTCASE_SOURCEDIR "/settings/hang_secret_service.py");
        const struct
        {
            QString shellPrefix, line;
            int fromMs, toMs;
        } rows[] = {
            {QStringLiteral("DBUS_SESSION_BUS_ADDRESS=unix:path=/nonexistent/bus exec"),
             QStringLiteral("line=Keyring unavailable ("), 0, 1500},
            {QStringLiteral(
                 "exec dbus-run-session -- bash -c 'exec 3< <(/usr/bin/python3 %1); read ready <&3; \"$0\"; "
                 "kill $!' ")
                 .arg(hang),
             QStringLiteral("no answer within 1.5 s"), 4000, 10000},
        };
        for (const auto& row : rows) {
            const QString out = probe(row.shellPrefix);
            QVERIFY2(out.contains(QStringLiteral("loaded=no saved=0")) &&
                         out.contains(QStringLiteral("lines=1")) && out.contains(row.line),
                     qPrintable(out));
            const int ms = out.section(QStringLiteral("ms="), 1).section(QLatin1Char(' '), 0, 0).toInt();
            QVERIFY2(ms >= row.fromMs && ms < row.toMs, qPrintable(out));
        }
    }
};

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    if (qEnvironmentVariableIsSet("VANTALO_KEYCHAIN_PROBE")) {
        return runProbe();
    }
    TestKeychain test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_keychain.moc"
