// The settings as stored and read back (hand edits included), the shortcut recorder and the
// preferences window, offscreen, with the credentials in a real gnome-keyring (tests/with-keyring.sh).
#include "common/Geometry.h"
#include "hotkey/HotkeyMatcher.h"
#include "hotkey/HotkeyRecorderButton.h"
#include "hotkey/ShortcutLabel.h"
#include "settings/HotkeySettingsNotifier.h"
#include "settings/KeychainStore.h"
#include "settings/MemorySecretStore.h"
#include "settings/PreferencesWindow.h"
#include "settings/QtKeychainSecretStore.h"
#include "settings/SettingsKeys.h"
#include "settings/ShortcutSettings.h"
#include "settings/UserDefaults.h"
#include "sharing/CloudUploader.h"

#include <QApplication>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace vantalo;

class TestPreferences : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    QString iniPath() const { return m_dir.filePath(QStringLiteral("Vantalo.ini")); }
    // A store as the next launch sees it: everything went through the file.
    std::unique_ptr<UserDefaults> reopened() { return std::make_unique<UserDefaults>(iniPath()); }

private Q_SLOTS:
    void theRecorderButton()
    {
        QWidget window;
        auto* button = new HotkeyRecorderButton(&window);
        auto* elsewhere = new QPushButton(QStringLiteral("elsewhere"), &window);
        elsewhere->move(0, 60);
        QList<std::pair<int, qint64>> recorded;
        button->onHotkeyRecorded = [&recorded](quint16 key, quint64 modifiers) {
            recorded.append({key, qint64(modifiers)});
        };
        button->setCurrentHotkeyLabel(QStringLiteral("Ctrl+G"));
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        QCOMPARE(button->text(), QStringLiteral("Ctrl+G"));

        QTest::mouseClick(button, Qt::LeftButton);
        QVERIFY(button->isRecording());
        QCOMPARE(button->text(), QStringLiteral("Press shortcut\u2026"));
        QTRY_VERIFY(button->hasFocus());

        // Bare keys, a modifier alone and keys Vantalo cannot grab keep it waiting.
        QTest::keyClick(button, Qt::Key_S);
        QTest::keyClick(button, Qt::Key_Control, Qt::ControlModifier);
        QTest::keyClick(button, Qt::Key_F20, Qt::ControlModifier);
        QVERIFY(button->isRecording());
        QVERIFY(recorded.isEmpty());
        // A second click changes nothing.
        QTest::mouseClick(button, Qt::LeftButton);
        QVERIFY(button->isRecording());

        // Escape gives up without a report.
        QTest::keyClick(button, Qt::Key_Escape);
        QVERIFY(!button->isRecording());
        QCOMPARE(button->text(), QStringLiteral("Ctrl+G"));
        QVERIFY(recorded.isEmpty());

        // With modifiers, in the stored encoding: Alt → option, Ctrl → command, Meta → control.
        const QList<std::tuple<Qt::Key, Qt::KeyboardModifiers, int, qint64>> cases{
            {Qt::Key_S, Qt::AltModifier, 1, 0x80000},
            {Qt::Key_R, Qt::ControlModifier | Qt::ShiftModifier, 15, 0x120000},
            {Qt::Key_Space, Qt::MetaModifier, 49, 0x40000},
            {Qt::Key_Percent, Qt::ShiftModifier | Qt::ControlModifier, 23,
             0x120000}, // Shift+5 on a US layout
            {Qt::Key_Enter, Qt::ControlModifier | Qt::KeypadModifier, 76, 0x100000},
        };
        for (const auto& [key, modifiers, code, flags] : cases) {
            QTest::mouseClick(button, Qt::LeftButton);
            QTest::keyClick(button, key, modifiers);
            QVERIFY(!button->isRecording());
            QCOMPARE(recorded.last(), std::pair(code, flags));
            // The label only changes once the owner has stored the shortcut.
            QCOMPARE(button->text(), QStringLiteral("Ctrl+G"));
        }

        // Losing the focus while recording gives up too.
        QTest::mouseClick(button, Qt::LeftButton);
        elsewhere->setFocus();
        QTRY_VERIFY(!button->isRecording());
        QCOMPARE(button->text(), QStringLiteral("Ctrl+G"));
        QCOMPARE(recorded.size(), 5);

        // The wrapper's update leaves the title alone while a recording is under way.
        HotkeyRecorderView view(button);
        QTest::mouseClick(button, Qt::LeftButton);
        view.update(Shortcut{15, 0x120000}, {});
        QCOMPARE(button->text(), QStringLiteral("Press shortcut\u2026"));
        QTest::keyClick(button, Qt::Key_Escape);
        QCOMPARE(button->text(), QStringLiteral("Shift+Ctrl+R"));
    }

    void thePreferencesRoundTrip()
    {
        if (!qEnvironmentVariableIsSet("VANTALO_TEST_KEYRING")) {
            QSKIP("needs the keyring session of tests/with-keyring.sh");
        }
        UserDefaults defaults(m_dir.filePath(QStringLiteral("prefs.ini")));
        registerShortcutDefaults(defaults);
        QtKeychainSecretStore secrets(keychainService);
        KeychainStore keychain(secrets);
        HotkeySettingsNotifier notifier;
        QSignalSpy notifications(&notifier, &HotkeySettingsNotifier::hotkeySettingsChanged);

        auto window = std::make_unique<PreferencesWindow>(defaults, keychain, notifier);
        window->show();
        QVERIFY(QTest::qWaitForWindowExposed(window.get()));
        QCOMPARE(window->windowTitle(), QStringLiteral("Vantalo Preferences"));
        QCOMPARE(window->size(), QSize(420, 420));
        QCOMPARE(window->bucketNameField()->text(), QStringLiteral("vantalo-uploads"));
        QCOMPARE(window->regionField()->text(), QStringLiteral("us-east-1"));
        QCOMPARE(window->cdnDomainField()->text(),
                 QStringLiteral("vantalo-uploads.s3.us-east-1.amazonaws.com"));
        QVERIFY(window->accessKeyIdField()->text().isEmpty());
        QVERIFY(window->secretAccessKeyField()->text().isEmpty());
        QCOMPARE(window->secretAccessKeyField()->echoMode(), QLineEdit::Password);
        QCOMPARE(window->recorderButton()->text(), QStringLiteral("Ctrl+G"));

        // S3 fields are stored as they are typed; a cleared field stores the empty string.
        window->regionField()->selectAll();
        QTest::keyClicks(window->regionField(), QStringLiteral("eu-west-3"));
        QCOMPARE(defaults.stringForKey(SettingsKey::s3Region), QStringLiteral("eu-west-3"));
        window->bucketNameField()->selectAll();
        QTest::keyClick(window->bucketNameField(), Qt::Key_Backspace);
        QCOMPARE(defaults.stringForKey(SettingsKey::s3BucketName), QString());
        QVERIFY(defaults.stringForKey(SettingsKey::s3BucketName).has_value());
        QVERIFY(!keychain.loadCredential(CredentialKey::accessKeyId));

        // The endpoint for S3-compatible storage: empty until typed; the environment overrides it.
        QVERIFY(window->endpointField()->text().isEmpty());
        QTest::keyClicks(window->endpointField(), QStringLiteral("https://minio.example.com:9000"));
        QCOMPARE(defaults.stringForKey(SettingsKey::s3Endpoint),
                 QStringLiteral("https://minio.example.com:9000"));
        QCOMPARE(CloudUploader::Config::load(defaults, keychain).endpoint,
                 QStringLiteral("https://minio.example.com:9000"));
        qputenv(CloudUploader::endpointVariable, "http://127.0.0.1:4569");
        QCOMPARE(CloudUploader::Config::load(defaults, keychain).endpoint,
                 QStringLiteral("http://127.0.0.1:4569"));
        qunsetenv(CloudUploader::endpointVariable);

        // Credentials reach the keyring only through Save; Return in a field is Save. Escape and
        // showing the window again keep what is typed and not saved.
        QTest::keyClicks(window->accessKeyIdField(), QStringLiteral("AKIDEXAMPLE"));
        QTest::keyClicks(window->secretAccessKeyField(), QStringLiteral(" secret with spaces "));
        QTest::keyClick(window->secretAccessKeyField(), Qt::Key_Escape);
        QVERIFY(window->isVisible());
        window->hide();
        window->show();
        QCOMPARE(window->accessKeyIdField()->text(), QStringLiteral("AKIDEXAMPLE"));
        QVERIFY(!keychain.loadCredential(CredentialKey::accessKeyId));
        QTest::keyClick(window->secretAccessKeyField(), Qt::Key_Return);
        QCOMPARE(keychain.loadCredential(CredentialKey::accessKeyId), QStringLiteral("AKIDEXAMPLE"));
        QCOMPARE(keychain.loadCredential(CredentialKey::secretAccessKey),
                 QStringLiteral(" secret with spaces "));
        QVERIFY(window->isSavedShown());
        // A second Save a second later: the first Save's reset still hides the note at 2 s.
        QTest::qWait(1000);
        window->save();
        QTest::qWait(1300);
        QVERIFY(!window->isSavedShown());
        QCOMPARE(notifications.count(), 0);

        // A recorded shortcut is stored in both keys, announced once and shown.
        QTest::mouseClick(window->recorderButton(), Qt::LeftButton);
        QTest::keyClick(window->recorderButton(), Qt::Key_R, Qt::ControlModifier | Qt::ShiftModifier);
        QCOMPARE(notifications.count(), 1);
        QCOMPARE(defaults.integerForKey(SettingsKey::hotkeyKeyCode), 15);
        QCOMPARE(defaults.integerForKey(SettingsKey::hotkeyModifiers), 1179648);
        QCOMPARE(window->recorderButton()->text(), QStringLiteral("Shift+Ctrl+R"));
        // Nothing unsaved: Escape closes.
        QTest::keyClick(window->accessKeyIdField(), Qt::Key_Escape);
        QVERIFY(!window->isVisible());

        // A new window reads what was saved.
        window.reset();
        PreferencesWindow again(defaults, keychain, notifier);
        again.show();
        QCOMPARE(again.accessKeyIdField()->text(), QStringLiteral("AKIDEXAMPLE"));
        QCOMPARE(again.bucketNameField()->text(), QString());
        QCOMPARE(again.recorderButton()->text(), QStringLiteral("Shift+Ctrl+R"));
    }

    void cleanup() { QFile::remove(iniPath()); }

    void integersAreWholeDecimalTexts()
    {
        const std::pair<QString, std::optional<qint64>> rows[] = {
            {QStringLiteral("1048576"), 1048576},
            {QStringLiteral("-3"), -3},
            {QStringLiteral("1.5"), {}},
            {QStringLiteral("command"), {}},
            {QStringLiteral(" 12"), {}},
            {QStringLiteral("0x100000"), {}},
            {QString(), {}},
            {QStringLiteral("99999999999999999999"), {}},
        };
        for (const auto& [stored, value] : rows) {
            UserDefaults(iniPath()).setString(QStringLiteral("probe"), stored);
            const auto defaults = reopened();
            QCOMPARE(defaults->hasIntegerForKey(QStringLiteral("probe")), value.has_value());
            QCOMPARE(defaults->integerForKey(QStringLiteral("probe")), value.value_or(0));
        }
        // A number stored as one reads back as one.
        UserDefaults(iniPath()).setInteger(QStringLiteral("probe"), 1179648);
        QCOMPARE(reopened()->integerForKey(QStringLiteral("probe")), 1179648);
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

    void shortcutReading()
    {
        const struct
        {
            QByteArray keyCode; // "-" for nothing stored
            QByteArray modifiers;
            bool registered;
            int expectedKey;
            qint64 expectedModifiers;
            bool fellBack;
        } rows[] = {
            {"-", "-", false, 5, 0x100000, false}, // nothing, not even defaults
            {"-", "-", true, 5, 0x100000, false},
            {"15", "1179648", true, 15, 0x120000, false}, // recorded shift-command-R
            {"15", "-", true, 15, 0x100000, false},
            // A stored pair that can never be registered: the default, never another key.
            {"15", "abc", true, 5, 0x100000, true},
            {"15", "", false, 5, 0x100000, true},
            {"15", "0", true, 5, 0x100000, true},
            {"5", "-1", true, 5, 0x100000, true},
            {"5", "1114112", true, 5, 0x100000, true}, // stray bits
            {"abc", "262144", true, 5, 0x100000, true},
            {"5.0", "262144", true, 5, 0x100000, true},
            {"99999999999999999999", "262144", true, 5, 0x100000, true},
            {"70000", "262144", true, 5, 0x100000, true}, // beyond 16 bits
            {"1000", "262144", true, 5, 0x100000, true},  // not in the key table
            {"-1", "-", true, 5, 0x100000, true},
            {"\xff\xfe", "262144", true, 5, 0x100000, true}, // invalid UTF-8
        };
        for (const auto& row : rows) {
            {
                // Written as a hand edit would be, bytes and all.
                QFile file(iniPath());
                QVERIFY(file.open(QIODevice::WriteOnly));
                file.write("[General]\n");
                if (row.keyCode != "-") {
                    file.write(SettingsKey::hotkeyKeyCode.toUtf8() + "=" + row.keyCode + "\n");
                }
                if (row.modifiers != "-") {
                    file.write(SettingsKey::hotkeyModifiers.toUtf8() + "=" + row.modifiers + "\n");
                }
            }
            auto defaults = reopened();
            if (row.registered) {
                registerShortcutDefaults(*defaults);
            }
            const StoredShortcut stored = readStoredShortcut(*defaults);
            QVERIFY2(stored.shortcut ==
                             (Shortcut{quint16(row.expectedKey), quint64(row.expectedModifiers)}) &&
                         stored.fellBack == row.fellBack,
                     row.keyCode + " " + row.modifiers);
            // The menu names what is registered.
            QCOMPARE(menuShortcut(*defaults), stored.shortcut);
        }
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

    // What the keyring itself does not show (tst_keychain): bytes that are not text, text that
    // cannot be stored, a write that fails.
    void credentialsAreDecodedStrictly()
    {
        MemorySecretStore secrets;
        KeychainStore keychain(secrets);
        const QString account = accountName(CredentialKey::secretAccessKey);
        // Bytes that are not UTF-8 read as absent.
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

    void shortcutLabelsAndMatching()
    {
        const struct
        {
            quint16 keyCode;
            quint64 modifiers;
            const char* compact;
            const char* spelledOut;
        } labels[] = {
            {5, 0x100000, "\u2318G", "Ctrl+G"},
            {23, 0x120000, "\u21E7\u23185", "Shift+Ctrl+5"},
            {49, 0x40000, "\u2303Space", "Meta+Space"},
            {1, 0x1E0000, "\u2303\u2325\u21E7\u2318S", "Meta+Alt+Shift+Ctrl+S"}, // in a fixed order
            {0, 0, "A", "A"},
            {5, 0x110000, "\u2318G", "Ctrl+G"}, // caps lock left out
            {36, 0x100000, "\u2318?", "Ctrl+Return"},
            {76, 0x100000, "\u2318\u21A9", "Ctrl+Enter"},
            {10, 0x100000, "\u2318?", "Ctrl+?"}, // unknown
        };
        for (const auto& row : labels) {
            QCOMPARE(shortcutLabel(row.keyCode, row.modifiers), QString::fromUtf8(row.compact));
            QCOMPARE(nativeShortcutLabel(row.keyCode, row.modifiers), QString::fromUtf8(row.spelledOut));
        }

        // A key event against the registered command-G (0x100000).
        const auto down = KeyEventType::keyDown;
        const struct
        {
            KeyEventType type;
            quint16 keyCode;
            quint64 flags;
            quint64 registered;
            bool matches;
        } events[] = {
            {down, 5, 0x100000, 0x100000, true},  {down, 5, 0x110000, 0x100000, true}, // with caps lock
            {down, 5, 0x200105, 0x100000, false},                                      // keypad and low bits
            {down, 5, 0x300000, 0x100000, true}, // the keypad bit alone is ignored
            {down, 5, 0x120000, 0x100000, false}, {down, 5, 0, 0x100000, false},
            {down, 4, 0x100000, 0x100000, false}, {KeyEventType::keyUp, 5, 0x100000, 0x100000, false},
            {down, 5, 0x110000, 0x110000, false}, // a registered stray bit never matches
        };
        for (const auto& row : events) {
            QVERIFY2(matchesHotkey(row.type, row.keyCode, row.flags, Shortcut{5, row.registered}) ==
                         row.matches,
                     qPrintable(QString::number(row.flags, 16)));
        }
    }

    void coordinateConversions()
    {
        const QRectF atOrigin(0, 0, 1920, 1080);
        const struct
        {
            QRectF primary, yUp, qt;
        } rows[] = {
            {atOrigin, {100, 200, 300, 150}, {100, 730, 300, 150}},
            {atOrigin, {-1920, 0, 1920, 1080}, {-1920, 0, 1920, 1080}},    // a display to the left
            {atOrigin, {0, 1080, 800, 600}, {0, -600, 800, 600}},          // a display above
            {{1440, 0, 1920, 1080}, {0, 0, 10, 10}, {1440, 1070, 10, 10}}, // primary not at the origin
        };
        for (const auto& [primary, yUp, qt] : rows) {
            QCOMPARE(toQtRect(yUp, primary), qt);
            QCOMPARE(fromQtRect(qt, primary), yUp);
            QCOMPARE(toQtPoint(yUp.topLeft(), primary), QPointF(qt.x(), qt.y() + qt.height()));
            QCOMPARE(fromQtPoint(qt.topLeft(), primary), QPointF(yUp.x(), yUp.y() + yUp.height()));
        }
    }
};

QTEST_MAIN(TestPreferences)
#include "tst_preferences.moc"
