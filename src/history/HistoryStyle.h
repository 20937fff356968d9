#pragma once

#include <QColor>
#include <QFont>
#include <QPalette>

// What the history window's text looks like beside the system's.
namespace vantalo::history {

inline QFont captionFont()
{
    QFont f;
    f.setPixelSize(11);
    return f;
}

// The window's text colour, fainter.
inline QColor secondary(const QPalette& palette, double opacity = 1.0)
{
    QColor c = palette.color(QPalette::WindowText);
    c.setAlphaF(float(0.55 * opacity));
    return c;
}

} // namespace vantalo::history
