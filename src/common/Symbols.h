#pragma once

#include <QColor>
#include <QRectF>

class QPainter;

namespace vantalo {

// The few symbols the panels show, drawn as strokes so they stay sharp at any size.
enum class Symbol
{
    cloudUpload,     // a cloud with an arrow up
    cloudCheckmark,  // a cloud with a check mark
    clipboard,       // a document on a clipboard
    trash,           // a bin
    xmark,           // a cross
    xmarkCircleFill, // a filled disc with the cross cut out
    photoStack,      // two tilted photographs
    arrowsInward,    // two arrows pointing at each other across a corner: make smaller
    arrowUturnLeft,  // an arrow that turns back to the left: undo
};

// Draws `symbol` centred in `box` (its size is the symbol's point size) with lines `weight` thick.
void paintSymbol(QPainter& painter, Symbol symbol, const QRectF& box, const QColor& color, double weight);

} // namespace vantalo
