// The settings as stored and read back (hand edits included), the credentials in a real
// gnome-keyring (in a private D-Bus session, started by tests/with-keyring.sh) and where no keyring
// answers, the shortcut recorder and the preferences window, offscreen.
#include "../fakes/MemorySecretStore.h"
#include "hotkey/HotkeyMatcher.h"
#include "hotkey/HotkeyRecorderButton.h"
#include "hotkey/ShortcutLabel.h"
#include "settings/HotkeySettingsNotifier.h"
#include "settings/KeychainStore.h"
#include "settings/OutputPreferences.h"
#include "settings/PreferencesWindow.h"
#include "settings/QtKeychainSecretStore.h"
#include "settings/SettingsKeys.h"
#include "settings/ShortcutSettings.h"
#include "settings/UserDefaults.h"
#include "sharing/CloudUploader.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>
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
    const bool saved =
        keychain.saveCredential(CredentialKey::accessKeyId, QStringLiteral("AKID")).has_value();
    std::printf("loaded=%s saved=%d ms=%lld lines=%lld\n", loaded ? "yes" : "no", saved ? 1 : 0,
                static_cast<long long>(clock.elapsed()), static_cast<long long>(printed.size()));
    for (const QString& line : printed) {
        std::printf("line=%s\n", qPrintable(line));
    }
    return 0;
}
} // namespace

class TestPreferences : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    QString iniPath() const { return m_dir.filePath(QStringLiteral("Vantalo.ini")); }
    // A store as the next launch sees it: everything went through the file.
    std::unique_ptr<UserDefaults> reopened() { return std::make_unique<UserDefaults>(iniPath()); }

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

    void thePreferencesRoundTrip()
    {
        UserDefaults defaults(m_dir.filePath(QStringLiteral("prefs.ini")));
        registerShortcutDefaults(defaults);
        QtKeychainSecretStore secrets(keychainService);
        KeychainStore keychain(secrets);
        HotkeySettingsNotifier notifier;
        QSignalSpy notifications(&notifier, &HotkeySettingsNotifier::hotkeySettingsChanged);

        auto window = std::make_unique<PreferencesWindow>(defaults, keychain, notifier);
        window->show();
        QVERIFY(QTest::qWaitForWindowExposed(window.get()));
        QCOMPARE(window->size(), QSize(420, 640));
        // Nothing stored: the fields are empty, with what would be used greyed in them.
        QVERIFY(window->bucketNameField()->text().isEmpty());
        QCOMPARE(window->bucketNameField()->placeholderText(), QStringLiteral("vantalo-uploads"));
        QVERIFY(window->regionField()->text().isEmpty());
        QCOMPARE(window->regionField()->placeholderText(), QStringLiteral("us-east-1"));
        QCOMPARE(window->cdnDomainField()->placeholderText(),
                 QStringLiteral("vantalo-uploads.s3.us-east-1.amazonaws.com"));
        QVERIFY(window->accessKeyIdField()->text().isEmpty());
        QVERIFY(window->secretAccessKeyField()->text().isEmpty());
        QCOMPARE(window->secretAccessKeyField()->echoMode(), QLineEdit::Password);
        QCOMPARE(window->recorderButton()->text(), QStringLiteral("Ctrl+G"));

        // The shortcut button: bare keys, a modifier alone and keys Vantalo cannot grab keep it
        // waiting, and a second click changes nothing; Escape and losing the focus give up.
        HotkeyRecorderButton* button = window->recorderButton();
        QTest::mouseClick(button, Qt::LeftButton);
        QCOMPARE(button->text(), QStringLiteral("Press shortcut\u2026"));
        QTRY_VERIFY(button->hasFocus());
        QTest::keyClick(button, Qt::Key_S);
        QTest::keyClick(button, Qt::Key_Control, Qt::ControlModifier);
        QTest::keyClick(button, Qt::Key_F20, Qt::ControlModifier);
        QTest::mouseClick(button, Qt::LeftButton);
        QVERIFY(button->isRecording());
        QTest::keyClick(button, Qt::Key_Escape);
        QVERIFY(!button->isRecording() && window->isVisible());
        QTest::mouseClick(button, Qt::LeftButton);
        window->regionField()->setFocus();
        QTRY_VERIFY(!button->isRecording());
        QCOMPARE(button->text(), QStringLiteral("Ctrl+G"));
        QCOMPARE(notifications.count(), 0);

        // Each shortcut recorded is stored in the settings' encoding (Alt → option, Ctrl → command,
        // Meta → control), announced once and shown (in force at once: the end-to-end flow).
        const QList<std::tuple<Qt::Key, Qt::KeyboardModifiers, Shortcut, const char*>> recorded{
            {Qt::Key_S, Qt::AltModifier, {1, 0x80000}, "Alt+S"},
            {Qt::Key_Space, Qt::MetaModifier, {49, 0x40000}, "Meta+Space"},
            {Qt::Key_Percent, Qt::ShiftModifier | Qt::ControlModifier, {23, 0x120000}, "Shift+Ctrl+5"},
            {Qt::Key_Enter, Qt::ControlModifier | Qt::KeypadModifier, {76, 0x100000}, "Ctrl+Enter"},
            {Qt::Key_R, Qt::ControlModifier | Qt::ShiftModifier, {15, 0x120000}, "Shift+Ctrl+R"},
        };
        for (const auto& [key, modifiers, shortcut, label] : recorded) {
            QTest::mouseClick(button, Qt::LeftButton);
            QTest::keyClick(button, key, modifiers);
            QCOMPARE(readShortcut(defaults), shortcut);
            QCOMPARE(button->text(), QString::fromUtf8(label));
        }
        QCOMPARE(notifications.count(), recorded.size());

        // Pause / Resume and Record Last Region have their own; a shortcut another action has
        // trades places with the one it replaces, so no two actions ever share keys.
        HotkeyRecorderButton* pause = window->recorderButton(ShortcutAction::pauseRecording);
        HotkeyRecorderButton* last = window->recorderButton(ShortcutAction::recordLastRegion);
        QCOMPARE(pause->text(), QStringLiteral("Shift+Ctrl+G"));
        QCOMPARE(last->text(), QStringLiteral("Alt+Ctrl+G"));
        QTest::mouseClick(pause, Qt::LeftButton);
        QTest::keyClick(pause, Qt::Key_R, Qt::ControlModifier | Qt::ShiftModifier);
        QCOMPARE(readShortcut(defaults, ShortcutAction::pauseRecording), (Shortcut{15, 0x120000}));
        QCOMPARE(readShortcut(defaults), (Shortcut{KeyCode::g, 0x120000}));
        QCOMPARE(button->text(), QStringLiteral("Shift+Ctrl+G"));
        QCOMPARE(pause->text(), QStringLiteral("Shift+Ctrl+R"));
        QCOMPARE(last->text(), QStringLiteral("Alt+Ctrl+G"));
        QCOMPARE(notifications.count(), recorded.size() + 1);
        // Where the platform gives Vantalo one shortcut, the window says how to pause instead.
        {
            PreferencesWindow single(defaults, keychain, notifier, false);
            QVERIFY(!single.recorderButton(ShortcutAction::pauseRecording));
            const auto labels = single.findChildren<QLabel*>();
            QVERIFY(std::ranges::any_of(labels, [](const QLabel* label) {
                return label->text().contains(QStringLiteral("\u201Cvantalo --pause\u201D"));
            }));
        }

        // Output: the defaults shown, each choice stored as picked.
        QCOMPARE(window->outputScaleBox()->currentText(), QStringLiteral("2× — sharp on HiDPI screens"));
        QCOMPARE(window->outputFrameRateBox()->currentText(), QStringLiteral("15 fps"));
        QVERIFY(!defaults.stringForKey(SettingsKey::outputScale));
        window->outputScaleBox()->setCurrentText(QStringLiteral("1× — the screen's own pixels"));
        window->outputFrameRateBox()->setCurrentText(QStringLiteral("5 fps"));
        QCOMPARE(window->fitUnderBox()->currentText(), QStringLiteral("Off"));
        window->fitUnderBox()->setCurrentText(QStringLiteral("Under 5 MB"));
        QCOMPARE(window->countdownBox()->currentText(), QStringLiteral("Off"));
        window->countdownBox()->setCurrentText(QStringLiteral("3 s"));
        QCOMPARE(window->showClicksBox()->currentText(), QStringLiteral("Off"));
        QCOMPARE(window->showKeysBox()->currentText(), QStringLiteral("Off"));
        window->showClicksBox()->setCurrentText(QStringLiteral("On"));
        window->showKeysBox()->setCurrentText(QStringLiteral("Shortcuts and special keys"));
        QCOMPARE(readOutputPreferences(defaults).preferences, (OutputPreferences{1, 5, 5'000'000, 3, 1, 1}));

        // S3 fields are stored as they are typed; a cleared field stores the empty string.
        window->regionField()->selectAll();
        QTest::keyClicks(window->regionField(), QStringLiteral("eu-west-3"));
        QCOMPARE(defaults.stringForKey(SettingsKey::s3Region), QStringLiteral("eu-west-3"));
        QTest::keyClicks(window->bucketNameField(), QStringLiteral("my-gifs"));
        QCOMPARE(defaults.stringForKey(SettingsKey::s3BucketName), QStringLiteral("my-gifs"));
        window->bucketNameField()->selectAll();
        QTest::keyClick(window->bucketNameField(), Qt::Key_Backspace);
        QCOMPARE(defaults.stringForKey(SettingsKey::s3BucketName), QString());
        QVERIFY(defaults.stringForKey(SettingsKey::s3BucketName).has_value());

        // The endpoint for S3-compatible storage: empty until typed; the environment overrides it.
        QVERIFY(window->endpointField()->text().isEmpty());
        QTest::keyClicks(window->endpointField(), QStringLiteral("https://minio.example.com:9000"));
        QCOMPARE(defaults.stringForKey(SettingsKey::s3Endpoint),
                 QStringLiteral("https://minio.example.com:9000"));
        // What an upload reads: the fields as stored; the CDN domain keeps its default whatever the region.
        const auto config = CloudUploader::Config::load(defaults, keychain);
        QCOMPARE(config.endpoint, QStringLiteral("https://minio.example.com:9000"));
        QVERIFY(config.bucketName.isEmpty());
        QCOMPARE(config.region, QStringLiteral("eu-west-3"));
        QCOMPARE(config.cdnDomain, QStringLiteral("vantalo-uploads.s3.us-east-1.amazonaws.com"));
        qputenv(CloudUploader::endpointVariable, "http://127.0.0.1:4569");
        QCOMPARE(CloudUploader::Config::load(defaults, keychain).endpoint,
                 QStringLiteral("http://127.0.0.1:4569"));
        qunsetenv(CloudUploader::endpointVariable);

        // Credentials reach the keyring only through Save; Return in a field is Save. Escape or the
        // title bar's close over what is typed and not saved asks: Cancel keeps the window and
        // the text, Discard puts back what was saved and closes.
        QTest::keyClicks(window->accessKeyIdField(), QStringLiteral("AKIDEXAMPLE"));
        QTest::keyClicks(window->secretAccessKeyField(), QStringLiteral(" secret with spaces "));
        QTest::keyClick(window->secretAccessKeyField(), Qt::Key_Escape);
        QTRY_VERIFY(window->closeQuestion() && window->closeQuestion()->isVisible());
        window->closeQuestion()->button(QMessageBox::Cancel)->click();
        QTRY_VERIFY(!window->closeQuestion());
        QVERIFY(window->isVisible());
        QVERIFY(!window->close());
        QTRY_VERIFY(window->closeQuestion() && window->closeQuestion()->isVisible());
        window->closeQuestion()->button(QMessageBox::Cancel)->click();
        QTRY_VERIFY(!window->closeQuestion());
        QVERIFY(window->isVisible());
        window->hide();
        window->show();
        QCOMPARE(window->accessKeyIdField()->text(), QStringLiteral("AKIDEXAMPLE"));
        QVERIFY(!keychain.loadCredential(CredentialKey::accessKeyId));
        QTest::keyClick(window->secretAccessKeyField(), Qt::Key_Return);
        QCOMPARE(keychain.loadCredential(CredentialKey::accessKeyId), QStringLiteral("AKIDEXAMPLE"));
        QCOMPARE(CloudUploader::Config::load(defaults, keychain).secretAccessKey,
                 QStringLiteral(" secret with spaces "));
        QVERIFY(window->isSavedShown());
        // A second Save a second later: the first Save's reset still hides the note at 2 s.
        QTest::qWait(1000);
        window->save();
        QTest::qWait(1300);
        QVERIFY(!window->isSavedShown());
        QCOMPARE(notifications.count(), recorded.size() + 1); // Save announces no shortcut
        // Nothing unsaved: Escape closes.
        QTest::keyClick(window->accessKeyIdField(), Qt::Key_Escape);
        QVERIFY(!window->isVisible());

        // A new window reads what was saved.
        window.reset();
        PreferencesWindow again(defaults, keychain, notifier);
        again.show();
        QCOMPARE(again.accessKeyIdField()->text(), QStringLiteral("AKIDEXAMPLE"));
        QCOMPARE(again.bucketNameField()->text(), QString());
        QCOMPARE(again.recorderButton()->text(), QStringLiteral("Shift+Ctrl+G"));
        QCOMPARE(again.outputScaleBox()->currentText(), QStringLiteral("1× — the screen's own pixels"));
        QCOMPARE(again.outputFrameRateBox()->currentText(), QStringLiteral("5 fps"));
        // A size of the settings file's own is offered as it is; one that cannot be used is off.
        defaults.setInteger(SettingsKey::fitUnderBytes, 2'500'000);
        QCOMPARE(PreferencesWindow(defaults, keychain, notifier).fitUnderBox()->currentText(),
                 QStringLiteral("Under 2.5 MB"));
        defaults.setInteger(SettingsKey::fitUnderBytes, 12);
        const StoredOutputPreferences tooSmall = readOutputPreferences(defaults);
        QCOMPARE(tooSmall.preferences.fitUnderBytes, 0);
        QCOMPARE(tooSmall.problems, QStringList{QStringLiteral(
                                        "The setting fitUnderBytes (12) cannot be used; 0 is used instead")});
    }

    void cleanup() { QFile::remove(iniPath()); }

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
            {"+15", "\" 262144\"", true, 5, 0x100000, true}, // whole decimal texts only
            {"+15", "0x40000", true, 5, 0x100000, true},
            {"+15", "262144", true, 15, 0x40000, false},
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
            // Registered values are never written to the file.
            defaults.reset();
            QCOMPARE(reopened()->objectForKey(SettingsKey::hotkeyModifiers).has_value(),
                     row.modifiers != "-");
        }
    }

    // What the keyring itself does not show: bytes that are not text, text that
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

        // A failed add says why; the delete before it has happened.
        secrets.setFailWrites(true);
        const auto failed = keychain.saveCredential(CredentialKey::secretAccessKey, QStringLiteral("third"));
        QVERIFY(!failed);
        QCOMPARE(failed.error().description, QStringLiteral("the keyring did not answer"));
        QVERIFY(!keychain.loadCredential(CredentialKey::secretAccessKey));

        // The window says "Saved" only when both were saved; otherwise what was not and why, and
        // the credentials stay unsaved: Escape asks, and Discard puts back what was saved.
        UserDefaults defaults(iniPath());
        HotkeySettingsNotifier notifier;
        PreferencesWindow window(defaults, keychain, notifier);
        window.show();
        QTest::keyClicks(window.accessKeyIdField(), QStringLiteral("AKID"));
        QTest::keyClick(window.accessKeyIdField(), Qt::Key_Return);
        QVERIFY(window.isSavedShown());
        QCOMPARE(window.savedNote(), QStringLiteral("Credentials not saved: the keyring did not answer"));
        QTest::keyClick(window.accessKeyIdField(), Qt::Key_Escape);
        QTRY_VERIFY(window.closeQuestion() && window.closeQuestion()->isVisible());
        window.closeQuestion()->button(QMessageBox::Discard)->click();
        QTRY_VERIFY(!window.isVisible());
        QVERIFY(window.accessKeyIdField()->text().isEmpty());
        secrets.setFailWrites(false);
        window.show();
        QTest::keyClicks(window.accessKeyIdField(), QStringLiteral("AKID"));
        window.save();
        QCOMPARE(window.savedNote(), QStringLiteral("Saved"));
        QTest::keyClick(window.accessKeyIdField(), Qt::Key_Escape);
        QVERIFY(!window.isVisible());
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

    // Both ways through the real keyring: what is saved, other keyring tools read as it was typed,
    // one item an account; what an earlier version left as base64 (type=base64) reads as the key
    // and is rewritten as text.
    void theKeyringHoldsText()
    {
        QStringList printed;
        QtKeychainSecretStore secrets(keychainService, [&printed](const QString& line) { printed << line; });
        KeychainStore keychain(secrets);
        // secret-tool on one account's item: "lookup", "clear", "search --all", "store --label=…".
        const auto tool = [](const QString& command, const char* user, const QStringList& attributes = {},
                             const QByteArray& input = {}) {
            return secretTool(command.split(QLatin1Char(' ')) +
                                  QStringList{QStringLiteral("user"), QString::fromLatin1(user),
                                              QStringLiteral("server"), keychainService} +
                                  attributes,
                              input);
        };
        secretTool({QStringLiteral("clear"), QStringLiteral("server"), keychainService}); // the window's

        const QString secret = QStringLiteral("wJalr/K7MDENG+bPxRfi \u00e9");
        QVERIFY(!keychain.loadCredential(CredentialKey::secretAccessKey));
        QVERIFY(keychain.saveCredential(CredentialKey::secretAccessKey, QStringLiteral("first")).has_value());
        QVERIFY(keychain.saveCredential(CredentialKey::secretAccessKey, secret).has_value());
        QCOMPARE(keychain.loadCredential(CredentialKey::secretAccessKey), secret);
        QCOMPARE(tool(QStringLiteral("lookup"), "aws-secret-access-key"), secret);
        QCOMPARE(tool(QStringLiteral("search --all"), "aws-secret-access-key").count(QStringLiteral("[/")),
                 1);
        // An empty credential is stored and read back as empty, not as missing.
        QVERIFY(!keychain.loadCredential(CredentialKey::accessKeyId));
        QVERIFY(keychain.saveCredential(CredentialKey::accessKeyId, QString()).has_value());
        QCOMPARE(keychain.loadCredential(CredentialKey::accessKeyId), std::optional(QString()));

        const QString key = QStringLiteral("AKIA\u00e9XAMPLE");
        tool(QStringLiteral("clear"), "aws-access-key-id");
        tool(QStringLiteral("store --label=old"), "aws-access-key-id",
             {QStringLiteral("type"), QStringLiteral("base64")}, key.toUtf8().toBase64());
        QCOMPARE(keychain.loadCredential(CredentialKey::accessKeyId), key);
        QCOMPARE(tool(QStringLiteral("lookup"), "aws-access-key-id"), key);
        const QString items = tool(QStringLiteral("search --all"), "aws-access-key-id");
        QCOMPARE(items.count(QStringLiteral("[/")), 1);
        QVERIFY2(items.contains(QStringLiteral("attribute.type = plaintext")), qPrintable(items));
        QCOMPARE(keychain.loadCredential(CredentialKey::accessKeyId), key);
        QVERIFY2(printed.isEmpty(), qPrintable(printed.join('\n')));
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
    QApplication app(argc, argv);
    if (qEnvironmentVariableIsSet("VANTALO_KEYCHAIN_PROBE")) {
        return runProbe();
    }
    TestPreferences test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_preferences.moc"
