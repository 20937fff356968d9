#pragma once

#include "hotkey/Shortcut.h"

#include <QPushButton>

#include <functional>

namespace vantalo {

// A button that shows the shortcut in force and, once clicked, records the next key pressed with
// at least one of Shift, Ctrl, Alt and Meta. Escape, a lost focus or a second look elsewhere
// leave it unchanged; a bare key never becomes the shortcut.
class HotkeyRecorderButton : public QPushButton
{
    Q_OBJECT
public:
    static inline const QString recordingTitle = QStringLiteral("Press shortcut\u2026");

    explicit HotkeyRecorderButton(QWidget* parent = nullptr);

    bool isRecording() const { return m_isRecording; }
    QString currentHotkeyLabel() const { return m_currentHotkeyLabel; }
    void setCurrentHotkeyLabel(const QString& label);

    std::function<void(quint16 keyCode, quint64 modifiers)> onHotkeyRecorded;

protected:
    void mousePressEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void focusOutEvent(QFocusEvent* event) override;

private:
    void stopRecording();

    QString m_currentHotkeyLabel;
    bool m_isRecording = false;
};

// Keeps a recorder button in step with the stored shortcut: the owner calls `update` whenever the
// shortcut or its handler changes, and the label follows unless a recording is under way.
class HotkeyRecorderView
{
public:
    explicit HotkeyRecorderView(HotkeyRecorderButton* button) : m_button(button) {}
    void update(const Shortcut& shortcut, std::function<void(quint16, quint64)> onHotkeyRecorded);

private:
    HotkeyRecorderButton* m_button;
};

} // namespace vantalo
