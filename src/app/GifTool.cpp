#include "GifTool.h"

#include "common/Formatting.h"
#include "recording/GifRecoder.h"

#include <QDir>
#include <QElapsedTimer>
#include <QRegularExpression>
#include <QStringList>

#include <cmath>
#include <cstdio>
#include <unistd.h>

namespace vantalo {

namespace {

void printError(const QString& line)
{
    std::fprintf(stderr, "vantalo: %s\n", qPrintable(line));
}

std::optional<int> parseInt(const QString& text, int low, int high)
{
    bool ok = false;
    const int value = text.toInt(&ok);
    return ok && value >= low && value <= high ? std::optional(value) : std::nullopt;
}

// One line on the terminal that updates; nothing when standard error is not a terminal.
class ProgressLine
{
public:
    explicit ProgressLine(QString what) : m_what(std::move(what)), m_enabled(isatty(fileno(stderr)) != 0) {}
    ~ProgressLine()
    {
        if (m_enabled && m_shown >= 0) {
            std::fputs("\r\033[K", stderr);
        }
    }
    void operator()(double fraction)
    {
        const int percent = int(std::floor(std::clamp(fraction, 0.0, 1.0) * 100));
        if (!m_enabled || percent == m_shown) {
            return;
        }
        m_shown = percent;
        std::fprintf(stderr, "\r%s: %d %%", qPrintable(m_what), percent);
        std::fflush(stderr);
    }

private:
    QString m_what;
    bool m_enabled;
    int m_shown = -1;
};

RecodeControl withProgress(ProgressLine& line)
{
    RecodeControl control;
    control.progress = std::ref(line);
    return control;
}

} // namespace

std::optional<qint64> parseByteSize(const QString& text)
{
    static const QRegularExpression pattern(QStringLiteral("^\\s*(\\d+(?:\\.\\d+)?)\\s*(B|KB|MB|GB)?\\s*$"),
                                            QRegularExpression::CaseInsensitiveOption);
    const auto match = pattern.match(text);
    if (!match.hasMatch()) {
        return std::nullopt;
    }
    const QString unit = match.captured(2).toUpper();
    const double factor = unit == QLatin1String("GB")   ? 1e9
                          : unit == QLatin1String("MB") ? 1e6
                          : unit == QLatin1String("KB") ? 1e3
                                                        : 1.0;
    const double bytes = match.captured(1).toDouble() * factor;
    if (bytes < 1 || bytes > 1e15) {
        return std::nullopt;
    }
    return qint64(std::floor(bytes));
}

int runGifTool(const GifToolRequest& request)
{
    if (request.inputs.size() != 1) {
        printError(request.inputs.isEmpty()
                       ? QStringLiteral("no GIF given (see vantalo --help)")
                       : QStringLiteral("one GIF at a time, not %1").arg(request.inputs.size()));
        return 2;
    }
    if (request.output.isEmpty()) {
        printError(QStringLiteral("no output given: add -o OUT.gif"));
        return 2;
    }
    const bool levers = !request.scale.isEmpty() || !request.fps.isEmpty() || !request.lossy.isEmpty();
    if (!request.fit.isEmpty() && levers) {
        printError(QStringLiteral("--fit chooses the scale, frame rate and lossy level itself: give either "
                                  "--fit or those"));
        return 2;
    }
    const QString& input = request.inputs.first();
    const QString output = QDir::toNativeSeparators(request.output);
    QElapsedTimer clock;
    clock.start();
    const auto seconds = [&clock] { return QString::number(double(clock.elapsed()) / 1000.0, 'f', 1); };

    if (!request.fit.isEmpty()) {
        const auto budget = parseByteSize(request.fit);
        if (!budget) {
            printError(
                QStringLiteral("--fit %1 is not a size: write it as 10MB, 2.5MB or 800KB").arg(request.fit));
            return 2;
        }
        std::optional<ProgressLine> progress(
            std::in_place,
            QStringLiteral("Fitting %1 under %2").arg(input, fileSizeLabel(*budget, QLocale::c())));
        const auto fit = fitGif(input, *budget, request.output, withProgress(*progress));
        progress.reset();
        if (!fit) {
            printError(fit.error().failure.description);
            return fit.error().smallest ? 1 : 2;
        }
        const QString how =
            fit->unchanged ? QStringLiteral("unchanged: it already fits") : fit->settings.label();
        std::printf("Wrote %s: %s (%s) in %s s\n", qPrintable(output),
                    qPrintable(fileSizeLabel(fit->bytes, QLocale::c())), qPrintable(how),
                    qPrintable(seconds()));
        return 0;
    }

    struct Lever
    {
        const char* option;
        const QString& text;
        int low;
        int high;
        const char* hint;
        int OutputSettings::*field;
    };
    OutputSettings settings;
    for (const Lever& lever :
         {Lever{"scale", request.scale, 1, 2, "use 1 or 2", &OutputSettings::scale},
          Lever{"fps", request.fps, 1, 50, "use a frame rate from 1 to 50", &OutputSettings::frameRate},
          Lever{"lossy", request.lossy, 0, 100, "use a level from 0 to 100", &OutputSettings::lossy}}) {
        if (lever.text.isEmpty()) {
            continue;
        }
        const auto value = parseInt(lever.text, lever.low, lever.high);
        if (!value) {
            printError(QStringLiteral("--%1 %2: %3")
                           .arg(QLatin1String(lever.option), lever.text, QLatin1String(lever.hint)));
            return 2;
        }
        settings.*lever.field = *value;
    }
    std::optional<ProgressLine> progress(std::in_place, QStringLiteral("Writing %1").arg(output));
    const auto written = recodeGifFile(input, request.output, settings, withProgress(*progress));
    progress.reset();
    if (!written) {
        printError(written.error().description);
        return 2;
    }
    std::printf("Wrote %s: %s (%s) in %s s\n", qPrintable(output),
                qPrintable(fileSizeLabel(written->bytes, QLocale::c())), qPrintable(settings.label()),
                qPrintable(seconds()));
    return 0;
}

} // namespace vantalo
