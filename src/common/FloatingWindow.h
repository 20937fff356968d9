#pragma once

#include <QWidget>

namespace vantalo {

// Whether a floating window takes the pointer, or lets clicks through to what is below it.
enum class FloatingInput
{
    takesClicks,
    clickThrough,
};
// Whether the window manager may handle the window (the panel, which the user can move) or it is
// placed exactly where Vantalo puts it (the toolbar and the border, beside a region).
enum class FloatingPlacement
{
    managed,
    exact,
};

// The one look of Vantalo's floating windows (toolbar, border, preview panel, messages): above
// other windows, without a frame or a shadow, never taking the keyboard focus from the
// application in front. Set before the window is shown.
inline void makeFloating(QWidget* window, FloatingInput input, FloatingPlacement placement)
{
    Qt::WindowFlags flags = Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint |
                            Qt::WindowDoesNotAcceptFocus | Qt::NoDropShadowWindowHint;
    if (input == FloatingInput::clickThrough) {
        flags |= Qt::WindowTransparentForInput;
    }
    if (placement == FloatingPlacement::exact) {
        flags |= Qt::X11BypassWindowManagerHint;
    }
    window->setWindowFlags(flags);
    window->setAttribute(Qt::WA_ShowWithoutActivating);
    window->setFocusPolicy(Qt::NoFocus);
}

} // namespace vantalo
