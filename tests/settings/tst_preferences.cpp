// The shortcut recorder and the preferences window, offscreen, with the credentials in a real
// gnome-keyring (tests/with-keyring.sh).
#include "hotkey/HotkeyRecorderButton.h"
#include "settings/HotkeySettingsNotifier.h"
#include "settings/KeychainStore.h"
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
};

QTEST_MAIN(TestPreferences)
#include "tst_preferences.moc"
