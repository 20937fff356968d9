#include "common/Geometry.h"
#include "hotkey/HotkeyMatcher.h"
#include "hotkey/ShortcutLabel.h"
#include "settings/KeychainStore.h"
#include "settings/MemorySecretStore.h"
#include "settings/SettingsKeys.h"
#include "settings/ShortcutSettings.h"
#include "settings/UserDefaults.h"
#include "sharing/CloudUploader.h"

#include <QTemporaryDir>
#include <QTest>

using namespace vantalo;

class TestSettings : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    QString iniPath() const { return m_dir.filePath(QStringLiteral("Vantalo.ini")); }
    // A store as the next launch sees it: everything went through the file.
    std::unique_ptr<UserDefaults> reopened() { return std::make_unique<UserDefaults>(iniPath()); }

private Q_SLOTS:
    void cleanup() { QFile::remove(iniPath()); }

    void integersAreWholeDecimalTexts_data()
    {
        QTest::addColumn<QVariant>("stored");
        QTest::addColumn<bool>("isInteger");
        QTest::addColumn<qint64>("value");
        QTest::newRow("int") << QVariant(qint64(1048576)) << true << qint64(1048576);
        QTest::newRow("text") << QVariant(QStringLiteral("1179648")) << true << qint64(1179648);
        QTest::newRow("negative") << QVariant(QStringLiteral("-3")) << true << qint64(-3);
        QTest::newRow("fraction") << QVariant(QStringLiteral("1.5")) << false << qint64(0);
        QTest::newRow("word") << QVariant(QStringLiteral("command")) << false << qint64(0);
        QTest::newRow("padded") << QVariant(QStringLiteral(" 12")) << false << qint64(0);
        QTest::newRow("hex") << QVariant(QStringLiteral("0x100000")) << false << qint64(0);
        QTest::newRow("empty") << QVariant(QString()) << false << qint64(0);
        QTest::newRow("too large") << QVariant(QStringLiteral("99999999999999999999")) << false << qint64(0);
    }
    void integersAreWholeDecimalTexts()
    {
        QFETCH(QVariant, stored);
        QFETCH(bool, isInteger);
        QFETCH(qint64, value);
        {
            UserDefaults defaults(iniPath());
            defaults.setString(QStringLiteral("probe"), stored.toString());
        }
        const auto defaults = reopened();
        QCOMPARE(defaults->hasIntegerForKey(QStringLiteral("probe")), isInteger);
        QCOMPARE(defaults->integerForKey(QStringLiteral("probe")), value);
    }

    void registeredDefaultsAnswerUntilAValueIsStored()
    {
        auto defaults = reopened();
        QVERIFY(!defaults->objectForKey(SettingsKey::hotkeyKeyCode));
        registerShortcutDefaults(*defaults);
        QCOMPARE(defaults->integerForKey(SettingsKey::hotkeyKeyCode), 5);
        QCOMPARE(defaults->integerForKey(SettingsKey::hotkeyModifiers), 0x100000);
        defaults->setInteger(SettingsKey::hotkeyKeyCode, 15);
        QCOMPARE(defaults->integerForKey(SettingsKey::hotkeyKeyCode), 15);
        defaults->removeObject(SettingsKey::hotkeyKeyCode);
        QCOMPARE(defaults->integerForKey(SettingsKey::hotkeyKeyCode), 5);
        defaults.reset();
        // Registered values are never written to the file.
        QVERIFY(!reopened()->objectForKey(SettingsKey::hotkeyModifiers));
    }

    void shortcutReading_data()
    {
        QTest::addColumn<QByteArray>("keyCode"); // "-" for nothing stored
        QTest::addColumn<QByteArray>("modifiers");
        QTest::addColumn<bool>("registered");
        QTest::addColumn<int>("expectedKey");
        QTest::addColumn<qint64>("expectedModifiers");
        QTest::addColumn<bool>("fellBack");
        const auto row = [](const char* name, const QByteArray& key, const QByteArray& modifiers,
                            bool registered, int expectedKey, qint64 expectedModifiers, bool fellBack) {
            QTest::newRow(name) << key << modifiers << registered << expectedKey << expectedModifiers
                                << fellBack;
        };
        row("nothing, not even defaults", "-", "-", false, 5, 0x100000, false);
        row("registered defaults", "-", "-", true, 5, 0x100000, false);
        row("recorded shift-command-R", "15", "1179648", true, 15, 0x120000, false);
        row("only the key stored", "15", "-", true, 15, 0x100000, false);
        // A stored pair that can never be registered: the default, never another key.
        row("modifiers a word", "15", "abc", true, 5, 0x100000, true);
        row("modifiers empty", "15", "", false, 5, 0x100000, true);
        row("no modifiers", "15", "0", true, 5, 0x100000, true);
        row("modifiers -1", "5", "-1", true, 5, 0x100000, true);
        row("stray bits", "5", "1114112", true, 5, 0x100000, true);
        row("key code a word", "abc", "262144", true, 5, 0x100000, true);
        row("key code 5.0", "5.0", "262144", true, 5, 0x100000, true);
        row("key code huge", "99999999999999999999", "262144", true, 5, 0x100000, true);
        row("key code beyond 16 bits", "70000", "262144", true, 5, 0x100000, true);
        row("key code not in the key table", "1000", "262144", true, 5, 0x100000, true);
        row("negative key code", "-1", "-", true, 5, 0x100000, true);
        row("invalid UTF-8", "\xff\xfe", "262144", true, 5, 0x100000, true);
    }
    void shortcutReading()
    {
        QFETCH(QByteArray, keyCode);
        QFETCH(QByteArray, modifiers);
        QFETCH(bool, registered);
        QFETCH(int, expectedKey);
        QFETCH(qint64, expectedModifiers);
        QFETCH(bool, fellBack);
        {
            // Written as a hand edit would be, bytes and all.
            QFile file(iniPath());
            QVERIFY(file.open(QIODevice::WriteOnly));
            file.write("[General]\n");
            if (keyCode != "-") {
                file.write(SettingsKey::hotkeyKeyCode.toUtf8() + "=" + keyCode + "\n");
            }
            if (modifiers != "-") {
                file.write(SettingsKey::hotkeyModifiers.toUtf8() + "=" + modifiers + "\n");
            }
        }
        auto defaults = reopened();
        if (registered) {
            registerShortcutDefaults(*defaults);
        }
        const StoredShortcut stored = readStoredShortcut(*defaults);
        QCOMPARE(stored.shortcut.keyCode, expectedKey);
        QCOMPARE(stored.shortcut.modifiers, quint64(expectedModifiers));
        QCOMPARE(stored.fellBack, fellBack);
        // The menu names what is registered.
        QCOMPARE(menuShortcut(*defaults), stored.shortcut);
    }

    void uploadConfigurationKeepsStoredEmptyStrings()
    {
        MemorySecretStore secrets;
        KeychainStore keychain(secrets);
        auto fresh = CloudUploader::Config::load(*reopened(), keychain);
        QCOMPARE(fresh.bucketName, QStringLiteral("vantalo-uploads"));
        QCOMPARE(fresh.region, QStringLiteral("us-east-1"));
        QCOMPARE(fresh.cdnDomain, QStringLiteral("vantalo-uploads.s3.us-east-1.amazonaws.com"));
        QVERIFY(fresh.accessKeyId.isEmpty() && fresh.secretAccessKey.isEmpty());

        {
            UserDefaults defaults(iniPath());
            defaults.setString(SettingsKey::s3BucketName, QString());
            defaults.setString(SettingsKey::s3Region, QStringLiteral("eu-west-3"));
        }
        keychain.saveCredential(CredentialKey::accessKeyId, QStringLiteral("AKIDEXAMPLE"));
        keychain.saveCredential(CredentialKey::secretAccessKey, QStringLiteral("s3cr\u00e9t"));
        const auto config = CloudUploader::Config::load(*reopened(), keychain);
        QVERIFY(config.bucketName.isEmpty());
        QCOMPARE(config.region, QStringLiteral("eu-west-3"));
        QCOMPARE(config.cdnDomain, QStringLiteral("vantalo-uploads.s3.us-east-1.amazonaws.com"));
        QCOMPARE(config.accessKeyId, QStringLiteral("AKIDEXAMPLE"));
        QCOMPARE(config.secretAccessKey, QStringLiteral("s3cr\u00e9t"));
    }

    void credentialsAreReplacedAndDecodedStrictly()
    {
        MemorySecretStore secrets;
        KeychainStore keychain(secrets);
        const QString account = accountName(CredentialKey::secretAccessKey);
        QCOMPARE(account, QStringLiteral("aws-secret-access-key"));
        QCOMPARE(accountName(CredentialKey::accessKeyId), QStringLiteral("aws-access-key-id"));
        QVERIFY(!keychain.loadCredential(CredentialKey::secretAccessKey));

        QVERIFY(keychain.saveCredential(CredentialKey::secretAccessKey, QStringLiteral("first")));
        QVERIFY(keychain.saveCredential(CredentialKey::secretAccessKey, QStringLiteral("second")));
        QCOMPARE(secrets.itemCount(account), 1);
        QCOMPARE(keychain.loadCredential(CredentialKey::secretAccessKey), QStringLiteral("second"));

        // Empty is a value, not a deletion.
        QVERIFY(keychain.saveCredential(CredentialKey::secretAccessKey, QString()));
        QCOMPARE(keychain.loadCredential(CredentialKey::secretAccessKey), QString());
        QVERIFY(keychain.loadCredential(CredentialKey::secretAccessKey).has_value());

        // Bytes that are not UTF-8 read as absent.
        secrets.deleteSecret(account);
        secrets.addSecret(account, QByteArray("\xff\xfe ok", 5));
        QVERIFY(!keychain.loadCredential(CredentialKey::secretAccessKey));

        // Text that cannot be encoded leaves the stored item alone.
        secrets.deleteSecret(account);
        secrets.addSecret(account, "kept");
        QVERIFY(!keychain.saveCredential(CredentialKey::secretAccessKey, QString(QChar(0xD800))));
        QCOMPARE(keychain.loadCredential(CredentialKey::secretAccessKey), QStringLiteral("kept"));

        // A failed add reports false; the delete before it has happened.
        secrets.setFailWrites(true);
        QVERIFY(!keychain.saveCredential(CredentialKey::secretAccessKey, QStringLiteral("third")));
        QVERIFY(!keychain.loadCredential(CredentialKey::secretAccessKey));
    }

    void shortcutLabels_data()
    {
        QTest::addColumn<int>("keyCode");
        QTest::addColumn<qint64>("modifiers");
        QTest::addColumn<QString>("compact");
        QTest::addColumn<QString>("spelledOut");
        QTest::newRow("default") << 5 << qint64(0x100000) << QStringLiteral("\u2318G")
                                 << QStringLiteral("Ctrl+G");
        QTest::newRow("shift-command-5")
            << 23 << qint64(0x120000) << QStringLiteral("\u21E7\u23185") << QStringLiteral("Shift+Ctrl+5");
        QTest::newRow("control-command-space")
            << 49 << qint64(0x140000) << QStringLiteral("\u2303\u2318Space")
            << QStringLiteral("Meta+Ctrl+Space");
        QTest::newRow("control-space")
            << 49 << qint64(0x40000) << QStringLiteral("\u2303Space") << QStringLiteral("Meta+Space");
        QTest::newRow("fixed order") << 1 << qint64(0x1E0000) << QStringLiteral("\u2303\u2325\u21E7\u2318S")
                                     << QStringLiteral("Meta+Alt+Shift+Ctrl+S");
        QTest::newRow("no modifiers") << 0 << qint64(0) << QStringLiteral("A") << QStringLiteral("A");
        QTest::newRow("caps lock ignored")
            << 5 << qint64(0x110000) << QStringLiteral("\u2318G") << QStringLiteral("Ctrl+G");
        QTest::newRow("main return unnamed")
            << 36 << qint64(0x100000) << QStringLiteral("\u2318?") << QStringLiteral("Ctrl+Return");
        QTest::newRow("escape") << 53 << qint64(0x80000) << QStringLiteral("\u2325\u238B")
                                << QStringLiteral("Alt+Esc");
        QTest::newRow("keypad enter")
            << 76 << qint64(0x100000) << QStringLiteral("\u2318\u21A9") << QStringLiteral("Ctrl+Enter");
        QTest::newRow("F13") << 105 << qint64(0x20000) << QStringLiteral("\u21E7F13")
                             << QStringLiteral("Shift+F13");
        QTest::newRow("unknown") << 10 << qint64(0x100000) << QStringLiteral("\u2318?")
                                 << QStringLiteral("Ctrl+?");
    }
    void shortcutLabels()
    {
        QFETCH(int, keyCode);
        QFETCH(qint64, modifiers);
        QFETCH(QString, compact);
        QFETCH(QString, spelledOut);
        QCOMPARE(shortcutLabel(quint16(keyCode), quint64(modifiers)), compact);
        QCOMPARE(nativeShortcutLabel(quint16(keyCode), quint64(modifiers)), spelledOut);
    }

    void hotkeyMatching_data()
    {
        QTest::addColumn<int>("type");
        QTest::addColumn<int>("keyCode");
        QTest::addColumn<qint64>("flags");
        QTest::addColumn<qint64>("registered");
        QTest::addColumn<bool>("matches");
        const int down = int(KeyEventType::keyDown);
        QTest::newRow("command-G") << down << 5 << qint64(0x100000) << qint64(0x100000) << true;
        QTest::newRow("with caps lock") << down << 5 << qint64(0x110000) << qint64(0x100000) << true;
        QTest::newRow("with keypad and low bits")
            << down << 5 << qint64(0x200105) << qint64(0x100000) << false;
        QTest::newRow("keypad bit ignored") << down << 5 << qint64(0x300000) << qint64(0x100000) << true;
        QTest::newRow("extra shift") << down << 5 << qint64(0x120000) << qint64(0x100000) << false;
        QTest::newRow("G alone") << down << 5 << qint64(0) << qint64(0x100000) << false;
        QTest::newRow("other key") << down << 4 << qint64(0x100000) << qint64(0x100000) << false;
        QTest::newRow("release") << int(KeyEventType::keyUp) << 5 << qint64(0x100000) << qint64(0x100000)
                                 << false;
        QTest::newRow("registered stray bit never matches")
            << down << 5 << qint64(0x110000) << qint64(0x110000) << false;
    }
    void hotkeyMatching()
    {
        QFETCH(int, type);
        QFETCH(int, keyCode);
        QFETCH(qint64, flags);
        QFETCH(qint64, registered);
        QFETCH(bool, matches);
        QCOMPARE(matchesHotkey(KeyEventType(type), quint16(keyCode), quint64(flags),
                               Shortcut{5, quint64(registered)}),
                 matches);
    }

    void coordinateConversions_data()
    {
        QTest::addColumn<QRectF>("primary");
        QTest::addColumn<QRectF>("yUp");
        QTest::addColumn<QRectF>("qt");
        const QRectF primary(0, 0, 1920, 1080);
        QTest::newRow("on the primary")
            << primary << QRectF(100, 200, 300, 150) << QRectF(100, 730, 300, 150);
        QTest::newRow("display to the left")
            << primary << QRectF(-1920, 0, 1920, 1080) << QRectF(-1920, 0, 1920, 1080);
        QTest::newRow("display above") << primary << QRectF(0, 1080, 800, 600) << QRectF(0, -600, 800, 600);
        QTest::newRow("primary not at the origin")
            << QRectF(1440, 0, 1920, 1080) << QRectF(0, 0, 10, 10) << QRectF(1440, 1070, 10, 10);
    }
    void coordinateConversions()
    {
        QFETCH(QRectF, primary);
        QFETCH(QRectF, yUp);
        QFETCH(QRectF, qt);
        QCOMPARE(toQtRect(yUp, primary), qt);
        QCOMPARE(fromQtRect(qt, primary), yUp);
        QCOMPARE(toQtPoint(yUp.topLeft(), primary), QPointF(qt.x(), qt.y() + qt.height()));
        QCOMPARE(fromQtPoint(qt.topLeft(), primary), QPointF(yUp.x(), yUp.y() + yUp.height()));
    }
};

QTEST_GUILESS_MAIN(TestSettings)
#include "tst_settings.moc"
