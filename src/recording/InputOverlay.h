#pragma once

#include <QImage>
#include <QPoint>
#include <QRect>
#include <QString>
#include <QStringList>

#include <chrono>
#include <mutex>
#include <vector>

namespace vantalo {

// Which keys a recording shows.
enum class KeysShown
{
    none,
    shortcuts, // keys held with Ctrl, Alt or Super, and special keys (Enter, Tab, arrows, F1…)
    all,
};

// What a recording draws into its frames besides the screen.
struct InputShown
{
    bool clicks = false;
    KeysShown keys = KeysShown::none;
    // Keys never shown, as keyLabel writes them: Vantalo's own shortcuts (the stop key would
    // otherwise end every recording).
    QStringList hiddenKeys;
    bool any() const { return clicks || keys != KeysShown::none; }
    friend bool operator==(const InputShown&, const InputShown&) = default;
};

// A press of a mouse button or a key, as the platform saw it.
struct InputEvent
{
    using Clock = std::chrono::steady_clock;
    enum class Kind
    {
        click,
        key,
    };
    Kind kind = Kind::click;
    Clock::time_point at;
    QPoint position; // clicks: where, in the capture's native pixels (the space of its displays)
    int button = 1;  // clicks: 1 left, 2 middle, 3 right
    // Keys: the modifiers held ("Ctrl", "Alt", "Shift", "Super", in that order) and the key's name
    // in the keyboard's layout ("P", "Enter", "é").
    QStringList modifiers;
    QString key;
    bool special = false; // a key that types nothing (Enter, Tab, Escape, arrows, F1…)
};

// Whether `event` is shown when `keys` are: every key, or only those held with Ctrl, Alt or Super
// and special keys (so text typed, a password with it, never is).
bool keyShown(const InputEvent& event, KeysShown keys);
// "Ctrl + Shift + P", "Enter", "j"; Shift alone with a key that types is left out ("P", not
// "Shift + p").
QString keyLabel(const InputEvent& event);

// The events of one recording, shared by the thread that sees them and the capture thread that
// draws them. Only the last few seconds are kept.
class InputEventLog
{
public:
    void add(const InputEvent& event);
    // The events at or before `until` that can still show then.
    std::vector<InputEvent> recent(InputEvent::Clock::time_point until) const;

private:
    mutable std::mutex m_mutex;
    std::vector<InputEvent> m_events;
};

// Draws into a picture of `nativeRect` (`image` may be larger or smaller: its pixels are scaled
// to it), taken at `at`: a ring for each click in the last 0.3 s, growing and fading round where
// it was (blue for the left button, green for the middle one, red for the right one), and the
// last keys pressed as a rounded label at the bottom centre until 1 s after the last one (the
// same keys again count up: "j ×3"). `pointPixels` is how many image pixels make a point.
void drawInput(QImage& image, const QRect& nativeRect, double pointPixels,
               const std::vector<InputEvent>& events, InputEvent::Clock::time_point at, InputShown shown);

} // namespace vantalo
