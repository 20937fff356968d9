#pragma once

#include <QString>

#include <functional>

namespace vantalo {

// The few lines Vantalo prints on standard output are part of its behaviour. Objects that print
// take a LinePrinter so tests can read exactly what a user would see.
using LinePrinter = std::function<void(const QString& line)>;

void printLineToStdout(const QString& line);
LinePrinter stdoutPrinter();

} // namespace vantalo
