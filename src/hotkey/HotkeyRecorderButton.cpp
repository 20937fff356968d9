#include "HotkeyRecorderButton.h"

#include "hotkey/KeyCodes.h"
#include "hotkey/ShortcutLabel.h"

#include <QFontDatabase>
#include <QKeyEvent>

namespace vantalo {

HotkeyRecorderButton::HotkeyRecorderButton(QWidget* parent) : QPushButton(parent)
{
    QFont font = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    font.setPixelSize(13); // 13 points, which are device-independent pixels here
    setFont(font);
    setFocusPolicy(Qt::StrongFocus);
    setAutoDefault(false);
}

void HotkeyRecorderButton::setCurrentHotkeyLabel(const QString& label)
{
    m_currentHotkeyLabel = label;
    if (!m_isRecording) {
        setText(label);
    }
}

void HotkeyRecorderButton::mousePressEvent(QMouseEvent* event)
{
    // No ordinary click handling: a press only starts a recording.
    event->accept();
    if (m_isRecording) {
        return;
    }
    m_isRecording = true;
    setText(recordingTitle);
    setFocus(Qt::MouseFocusReason);
}

void HotkeyRecorderButton::keyPressEvent(QKeyEvent* event)
{
    if (!m_isRecording) {
        QPushButton::keyPressEvent(event);
        return;
    }
    event->accept();
    if (event->key() == Qt::Key_Escape) {
        stopRecording();
        return;
    }
    const quint64 modifiers = storedModifiers(event->modifiers());
    if (modifiers == 0) {
        return; // a bare key: keep waiting
    }
    const auto keyCode = keyCodeForQtKey(event->key(), event->modifiers() & Qt::KeypadModifier);
    if (!keyCode) {
        return; // a modifier alone, or a key with no place in the key table: keep waiting
    }
    if (onHotkeyRecorded) {
        onHotkeyRecorded(*keyCode, modifiers);
    }
    stopRecording();
}

void HotkeyRecorderButton::focusOutEvent(QFocusEvent* event)
{
    if (m_isRecording) {
        stopRecording();
    }
    QPushButton::focusOutEvent(event);
}

void HotkeyRecorderButton::stopRecording()
{
    m_isRecording = false;
    setText(m_currentHotkeyLabel);
}

void HotkeyRecorderView::update(const Shortcut& shortcut,
                                std::function<void(quint16, quint64)> onHotkeyRecorded)
{
    m_button->onHotkeyRecorded = std::move(onHotkeyRecorded);
    m_button->setCurrentHotkeyLabel(displayShortcutLabel(shortcut));
}

} // namespace vantalo
