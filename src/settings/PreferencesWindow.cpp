#include "PreferencesWindow.h"

#include "HotkeySettingsNotifier.h"
#include "KeychainStore.h"
#include "OutputPreferences.h"
#include "SettingsKeys.h"
#include "ShortcutSettings.h"
#include "UserDefaults.h"
#include "common/Formatting.h"
#include "recording/GifRecoder.h"

#include <QCloseEvent>
#include <QComboBox>
#include <QFormLayout>
#include <QGraphicsOpacityEffect>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QPropertyAnimation>
#include <QTimer>
#include <QVBoxLayout>

namespace vantalo {

namespace {
constexpr int kSavedHoldMs = 2000;
constexpr int kProblemHoldMs = 8000;
constexpr int kFadeMs = 200;

QLineEdit* field(QWidget* parent)
{
    auto* edit = new QLineEdit(parent);
    edit->setClearButtonEnabled(false);
    return edit;
}
} // namespace

PreferencesWindow::PreferencesWindow(UserDefaults& defaults, KeychainStore& keychain,
                                     HotkeySettingsNotifier& hotkeySettings, bool moreShortcuts,
                                     std::optional<QString> inputNote, QWidget* parent)
    : QDialog(parent, Qt::Window | Qt::WindowTitleHint | Qt::WindowCloseButtonHint | Qt::CustomizeWindowHint),
      m_defaults(defaults), m_keychain(keychain), m_hotkeySettings(hotkeySettings)
{
    setWindowTitle(title);
    setFixedSize(420, (moreShortcuts ? 640 : 610) + (inputNote ? 40 : 0));
    setModal(false);

    auto* layout = new QVBoxLayout(this);

    auto* shortcutBox = new QGroupBox(
        moreShortcuts ? QStringLiteral("Keyboard Shortcuts") : QStringLiteral("Keyboard Shortcut"), this);
    auto* shortcutRows = new QFormLayout(shortcutBox);
    for (const ShortcutAction action : allShortcutActions) {
        if (action != ShortcutAction::toggleRecording && !moreShortcuts) {
            continue;
        }
        auto* recorder = new HotkeyRecorderButton(shortcutBox);
        recorder->setMinimumSize(80, 22);
        recorder->setMaximumSize(140, 28);
        auto* row = new QHBoxLayout;
        row->addStretch();
        row->addWidget(recorder, 0, Qt::AlignVCenter);
        shortcutRows->addRow(shortcutActionName(action), row);
        m_recorders.insert(action, recorder);
        m_recorderViews.emplace(action, HotkeyRecorderView(recorder));
    }
    if (!moreShortcuts) {
        auto* note =
            new QLabel(QStringLiteral("To pause and resume with a key, bind \u201Cvantalo --pause\u201D "
                                      "to it in your desktop's keyboard settings."),
                       shortcutBox);
        note->setWordWrap(true);
        note->setEnabled(false);
        shortcutRows->addRow(note);
    }
    refreshRecorders();
    layout->addWidget(shortcutBox);

    // Applied from the next recording; stored as chosen.
    auto* outputBox = new QGroupBox(QStringLiteral("Output"), this);
    auto* output = new QFormLayout(outputBox);
    const OutputPreferences current = readOutputPreferences(m_defaults).preferences;
    m_outputScale = new QComboBox(outputBox);
    m_outputScale->addItem(outputScaleName(2), 2);
    m_outputScale->addItem(outputScaleName(1), 1);
    m_outputFrameRate = new QComboBox(outputBox);
    for (const int rate : outputFrameRates) {
        m_outputFrameRate->addItem(QStringLiteral("%1 fps").arg(rate), rate);
    }
    m_fitUnder = new QComboBox(outputBox);
    m_fitUnder->addItem(QStringLiteral("Off"), qint64(0));
    for (const FitPreset& preset : fitPresets()) {
        m_fitUnder->addItem(preset.label, preset.bytes);
    }
    if (m_fitUnder->findData(current.fitUnderBytes) < 0) {
        // A size set in the settings file is offered as it is.
        m_fitUnder->addItem(QStringLiteral("Under %1").arg(budgetLabel(current.fitUnderBytes)),
                            current.fitUnderBytes);
    }
    m_countdown = new QComboBox(outputBox);
    for (const int seconds : countdownChoices) {
        m_countdown->addItem(seconds ? QStringLiteral("%1 s").arg(seconds) : QStringLiteral("Off"), seconds);
    }
    m_showClicks = new QComboBox(outputBox);
    m_showClicks->addItem(QStringLiteral("Off"), 0);
    m_showClicks->addItem(QStringLiteral("On"), 1);
    m_showKeys = new QComboBox(outputBox);
    m_showKeys->addItem(QStringLiteral("Off"), 0);
    m_showKeys->addItem(QStringLiteral("Shortcuts and special keys"), 1);
    m_showKeys->addItem(QStringLiteral("All keys"), 2);
    const auto bindChoice = [this](QComboBox* box, qint64 value) {
        box->setCurrentIndex(box->findData(value));
        connect(box, &QComboBox::currentIndexChanged, this, [this] {
            storeOutputPreferences(m_defaults, OutputPreferences{m_outputScale->currentData().toInt(),
                                                                 m_outputFrameRate->currentData().toInt(),
                                                                 m_fitUnder->currentData().toLongLong(),
                                                                 m_countdown->currentData().toInt(),
                                                                 m_showClicks->currentData().toInt(),
                                                                 m_showKeys->currentData().toInt()});
        });
    };
    bindChoice(m_outputScale, current.scale);
    bindChoice(m_outputFrameRate, current.frameRate);
    bindChoice(m_fitUnder, current.fitUnderBytes);
    bindChoice(m_countdown, current.countdownSeconds);
    bindChoice(m_showClicks, current.showClicks);
    bindChoice(m_showKeys, current.showKeys);
    output->addRow(QStringLiteral("Size"), m_outputScale);
    output->addRow(QStringLiteral("Frame Rate"), m_outputFrameRate);
    output->addRow(QStringLiteral("Fit Each Recording"), m_fitUnder);
    output->addRow(QStringLiteral("Countdown"), m_countdown);
    output->addRow(QStringLiteral("Show Clicks"), m_showClicks);
    output->addRow(QStringLiteral("Show Keys"), m_showKeys);
    if (inputNote) {
        // Where Vantalo sees only part of the input (a Wayland session), it says which part.
        auto* note = new QLabel(*inputNote, outputBox);
        note->setWordWrap(true);
        note->setEnabled(false);
        output->addRow(note);
    }
    layout->addWidget(outputBox);

    auto* credentialsBox = new QGroupBox(QStringLiteral("AWS Credentials"), this);
    auto* credentials = new QFormLayout(credentialsBox);
    m_accessKeyId = field(credentialsBox);
    m_secretAccessKey = field(credentialsBox);
    m_secretAccessKey->setEchoMode(QLineEdit::Password);
    credentials->addRow(QStringLiteral("Access Key ID"), m_accessKeyId);
    credentials->addRow(QStringLiteral("Secret Access Key"), m_secretAccessKey);
    layout->addWidget(credentialsBox);

    auto* s3Box = new QGroupBox(QStringLiteral("Upload \u2014 S3 or S3-compatible storage"), this);
    auto* s3 = new QFormLayout(s3Box);
    const auto bound = [&](const QString& key, const QString& fallback) {
        QLineEdit* edit = field(s3Box);
        // What is used when nothing is stored shows greyed: it is nobody's bucket in particular.
        edit->setText(m_defaults.stringForKey(key).value_or(QString()));
        edit->setPlaceholderText(fallback);
        edit->setCursorPosition(0); // a long value shows its beginning
        // Stored as typed; a cleared field stores the empty string.
        connect(edit, &QLineEdit::textEdited, this,
                [this, key](const QString& text) { m_defaults.setString(key, text); });
        return edit;
    };
    m_bucketName = bound(SettingsKey::s3BucketName, SettingsKey::defaultBucketName);
    m_region = bound(SettingsKey::s3Region, SettingsKey::defaultRegion);
    m_cdnDomain = bound(SettingsKey::cdnDomain, SettingsKey::defaultCdnDomain);
    m_endpoint = bound(SettingsKey::s3Endpoint, QStringLiteral("https://storage.example.com"));
    m_endpoint->setToolTip(
        QStringLiteral("For S3-compatible storage (R2, MinIO, B2, Spaces). Leave empty for AWS."));
    s3->addRow(QStringLiteral("Bucket Name"), m_bucketName);
    s3->addRow(QStringLiteral("Region"), m_region);
    s3->addRow(QStringLiteral("CDN Domain"), m_cdnDomain);
    s3->addRow(QStringLiteral("Endpoint (optional)"), m_endpoint);
    layout->addWidget(s3Box);
    layout->addStretch();

    auto* saveRow = new QHBoxLayout;
    saveRow->addStretch();
    m_saved = new QLabel(QStringLiteral("Saved"), this);
    m_saved->setForegroundRole(QPalette::PlaceholderText);
    auto* opacity = new QGraphicsOpacityEffect(m_saved);
    opacity->setOpacity(0.0);
    m_saved->setGraphicsEffect(opacity);
    saveRow->addWidget(m_saved);
    m_save = new QPushButton(QStringLiteral("Save"), this);
    m_save->setDefault(true);
    connect(m_save, &QPushButton::clicked, this, &PreferencesWindow::save);
    saveRow->addWidget(m_save);
    layout->addLayout(saveRow);

    // Read once, when the window opens: showing it again must not overwrite what is being typed.
    loadCredentials();
}

void PreferencesWindow::loadCredentials()
{
    m_savedCredentials = {m_keychain.loadCredential(CredentialKey::accessKeyId).value_or(QString()),
                          m_keychain.loadCredential(CredentialKey::secretAccessKey).value_or(QString())};
    m_accessKeyId->setText(m_savedCredentials.first);
    m_secretAccessKey->setText(m_savedCredentials.second);
}

QString PreferencesWindow::savedNote() const
{
    return m_saved->text();
}

bool PreferencesWindow::hasUnsavedCredentials() const
{
    return std::pair(m_accessKeyId->text(), m_secretAccessKey->text()) != m_savedCredentials;
}

void PreferencesWindow::reject()
{
    // Escape closes the window, but never silently over credentials typed and not yet saved.
    if (hasUnsavedCredentials()) {
        askBeforeClosing();
        return;
    }
    QDialog::reject();
}

void PreferencesWindow::closeEvent(QCloseEvent* event)
{
    if (hasUnsavedCredentials()) {
        event->ignore();
        askBeforeClosing();
        return;
    }
    QDialog::closeEvent(event);
}

void PreferencesWindow::askBeforeClosing()
{
    if (m_closeQuestion) {
        m_closeQuestion->raise();
        return;
    }
    auto* question = new QMessageBox(QMessageBox::Question, QStringLiteral("Unsaved Credentials"),
                                     QStringLiteral("Save the access key and secret you typed?"),
                                     QMessageBox::Save | QMessageBox::Discard | QMessageBox::Cancel, this);
    question->setAttribute(Qt::WA_DeleteOnClose);
    question->setDefaultButton(QMessageBox::Save);
    connect(question, &QMessageBox::finished, this, [this, question] {
        const QMessageBox::StandardButton answer = question->standardButton(question->clickedButton());
        if (answer == QMessageBox::Save) {
            save();
        } else if (answer == QMessageBox::Discard) {
            m_accessKeyId->setText(m_savedCredentials.first);
            m_secretAccessKey->setText(m_savedCredentials.second);
        }
        // Saved or discarded, nothing is left unsaved: the window closes (a failed save stays).
        if (answer != QMessageBox::Cancel && !hasUnsavedCredentials()) {
            QDialog::reject();
        }
    });
    m_closeQuestion = question;
    question->open();
}

void PreferencesWindow::save()
{
    // Stored as typed, untrimmed. "Saved" only when both are: otherwise the window says what was
    // not saved and why, and the credentials still count as unsaved.
    const auto id = m_keychain.saveCredential(CredentialKey::accessKeyId, m_accessKeyId->text());
    const auto secret = m_keychain.saveCredential(CredentialKey::secretAccessKey, m_secretAccessKey->text());
    if (id && secret) {
        m_savedCredentials = {m_accessKeyId->text(), m_secretAccessKey->text()};
        m_saved->setText(QStringLiteral("Saved"));
        m_saved->setForegroundRole(QPalette::PlaceholderText);
        m_saved->setStyleSheet(QString());
    } else {
        m_saved->setText(QStringLiteral("Credentials not saved: ") + (id ? secret : id).error().description);
        m_saved->setStyleSheet(QStringLiteral("color: #d93025"));
    }
    setSavedShown(true);
    // Every Save hides its note a while after itself (a problem stays longer); a later Save does
    // not push it back.
    QTimer::singleShot(id && secret ? kSavedHoldMs : kProblemHoldMs, this, [this] { setSavedShown(false); });
}

void PreferencesWindow::setSavedShown(bool shown)
{
    m_showSaved = shown;
    auto* effect = static_cast<QGraphicsOpacityEffect*>(m_saved->graphicsEffect());
    auto* fade = new QPropertyAnimation(effect, "opacity", this);
    fade->setDuration(kFadeMs);
    fade->setEndValue(shown ? 1.0 : 0.0);
    fade->start(QAbstractAnimation::DeleteWhenStopped);
}

void PreferencesWindow::storeShortcut(ShortcutAction action, const Shortcut& shortcut)
{
    const Shortcut before = readShortcut(m_defaults, action);
    for (const ShortcutAction other : allShortcutActions) {
        if (other != action && m_recorders.contains(other) && readShortcut(m_defaults, other) == shortcut) {
            vantalo::storeShortcut(m_defaults, before, other);
        }
    }
    vantalo::storeShortcut(m_defaults, shortcut, action);
    m_hotkeySettings.post();
    refreshRecorders();
}

void PreferencesWindow::refreshRecorders()
{
    for (auto& [action, view] : m_recorderViews) {
        view.update(readShortcut(m_defaults, action), [this, action](quint16 keyCode, quint64 modifiers) {
            storeShortcut(action, Shortcut{keyCode, modifiers});
        });
    }
}

} // namespace vantalo
