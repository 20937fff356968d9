#include "Console.h"

#include <cstdio>

namespace vantalo {

void printLineToStdout(const QString& line)
{
    const QByteArray bytes = line.toUtf8();
    std::fwrite(bytes.constData(), 1, static_cast<size_t>(bytes.size()), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

LinePrinter stdoutPrinter()
{
    return &printLineToStdout;
}

} // namespace vantalo
