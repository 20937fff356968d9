#pragma once

#include <Qt>

namespace vantalo {

// The window flags of a floating panel above other windows that never takes the keyboard focus
// (toolbar, border, preview panel, feedback messages).
inline Qt::WindowFlags floatingWindowFlags()
{
    return Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint | Qt::WindowDoesNotAcceptFocus;
}

} // namespace vantalo
