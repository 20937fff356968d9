#pragma once

#include "ShortcutSettings.h"
#include "hotkey/HotkeyRecorderButton.h"

#include <QComboBox>
#include <QDialog>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPointer>
#include <QPushButton>

#include <QMap>

#include <map>
#include <memory>
#include <optional>
#include <utility>

namespace vantalo {

class HotkeySettingsNotifier;
class KeychainStore;
class UserDefaults;

// The preferences: the recording shortcut (in force at once), the upload credentials (kept in
// the keyring by Save) and the S3 settings (stored as they are typed). Titled, closable,
// 420 × 420 points. A dialog so that Return reaches the Save button.
class PreferencesWindow : public QDialog
{
    Q_OBJECT
public:
    static inline const QString title = QStringLiteral("Vantalo Preferences");

    // With `moreShortcuts`, Pause / Resume and Record Last Region get shortcuts of their own (the
    // platform can register them); without, the window says how a desktop key binding does it.
    // `inputNote` goes under Show Clicks and Show Keys where the session sees only some input.
    PreferencesWindow(UserDefaults& defaults, KeychainStore& keychain, HotkeySettingsNotifier& hotkeySettings,
                      bool moreShortcuts = true, std::optional<QString> inputNote = std::nullopt,
                      QWidget* parent = nullptr);

    // The question asked on closing over unsaved credentials (Save, Discard, Cancel), while shown.
    QMessageBox* closeQuestion() const { return m_closeQuestion; }
    bool isSavedShown() const { return m_showSaved; }
    // "Saved", or what was not saved and why.
    QString savedNote() const;
    HotkeyRecorderButton* recorderButton(ShortcutAction action = ShortcutAction::toggleRecording) const
    {
        return m_recorders.value(action);
    }
    QLineEdit* accessKeyIdField() const { return m_accessKeyId; }
    QLineEdit* secretAccessKeyField() const { return m_secretAccessKey; }
    QLineEdit* bucketNameField() const { return m_bucketName; }
    QLineEdit* regionField() const { return m_region; }
    QLineEdit* cdnDomainField() const { return m_cdnDomain; }
    QLineEdit* endpointField() const { return m_endpoint; }
    QPushButton* saveButton() const { return m_save; }
    QComboBox* outputScaleBox() const { return m_outputScale; }
    QComboBox* outputFrameRateBox() const { return m_outputFrameRate; }
    QComboBox* fitUnderBox() const { return m_fitUnder; }
    QComboBox* countdownBox() const { return m_countdown; }
    QComboBox* showClicksBox() const { return m_showClicks; }
    QComboBox* showKeysBox() const { return m_showKeys; }

    void save();
    bool hasUnsavedCredentials() const;

protected:
    void reject() override;
    void closeEvent(QCloseEvent* event) override;

private:
    void loadCredentials();
    // Another action's shortcut given to this one trades places with this one's.
    void storeShortcut(ShortcutAction action, const Shortcut& shortcut);
    void refreshRecorders();
    void setSavedShown(bool shown);

    UserDefaults& m_defaults;
    KeychainStore& m_keychain;
    HotkeySettingsNotifier& m_hotkeySettings;

    QMap<ShortcutAction, HotkeyRecorderButton*> m_recorders;
    std::map<ShortcutAction, HotkeyRecorderView> m_recorderViews;
    QLineEdit* m_accessKeyId;
    QLineEdit* m_secretAccessKey;
    QLineEdit* m_bucketName;
    QLineEdit* m_region;
    QLineEdit* m_cdnDomain;
    QLineEdit* m_endpoint;
    QComboBox* m_outputScale;
    QComboBox* m_outputFrameRate;
    QComboBox* m_fitUnder;
    QComboBox* m_countdown;
    QComboBox* m_showClicks;
    QComboBox* m_showKeys;
    QLabel* m_saved;
    QPointer<QMessageBox> m_closeQuestion;
    // Asks what to do with the credentials typed and not saved; closes unless the answer is Cancel.
    void askBeforeClosing();
    QPushButton* m_save;
    bool m_showSaved = false;
    std::pair<QString, QString> m_savedCredentials; // as last read from or saved to the keyring
};

} // namespace vantalo
