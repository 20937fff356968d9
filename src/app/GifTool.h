#pragma once

#include <QString>
#include <QStringList>

#include <optional>

namespace vantalo {

// `vantalo --fit SIZE IN.gif -o OUT.gif` and `vantalo --scale --fps --lossy IN.gif -o OUT.gif`:
// a GIF made smaller from a terminal, without a display and without the running Vantalo.
struct GifToolRequest
{
    QString fit;   // "10MB", "2.5MB", "800KB", or bytes
    QString scale; // the levers as typed; empty: the default
    QString fps;
    QString lossy;
    QStringList inputs;
    QString output;
};

// Exit codes: 0 written, 1 the size cannot be reached, 2 bad arguments or files.
int runGifTool(const GifToolRequest& request);

// Bytes of "10MB", "2.5MB", "800KB", "1000000" (a megabyte is 1,000,000 bytes).
std::optional<qint64> parseByteSize(const QString& text);

} // namespace vantalo
