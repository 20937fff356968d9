#pragma once

// A recording's steps, each waited for: the start answers its failure, if any; the stop, the frames
// (none where it failed or never answered); a whole recording of a given length.
#include "recording/FrameRecorder.h"

#include <QTest>

#include <chrono>
#include <optional>

namespace vantalo::testing {

inline std::optional<Failure> startRecording(FrameRecorder& recorder, const QRectF& region,
                                             const QString& displayName = {}, double maxSeconds = 30)
{
    std::optional<std::expected<void, Failure>> started;
    recorder.startRecording(region, displayName, 15, maxSeconds,
                            [&](std::expected<void, Failure> result) { started = result; });
    if (!QTest::qWaitFor([&] { return started.has_value(); }, 60000)) {
        return Failure{QStringLiteral("start never completed")};
    }
    return *started ? std::nullopt : std::optional(started->error());
}

inline FrameList stopRecording(FrameRecorder& recorder)
{
    std::optional<FrameList> frames;
    recorder.stopRecording(
        [&](std::expected<FrameList, Failure> stopped) { frames = stopped.value_or(FrameList{}); });
    if (!QTest::qWaitFor([&] { return frames.has_value(); }, 30000)) {
        qWarning("stop never completed");
    }
    return frames.value_or(FrameList{});
}

inline FrameList record(FrameRecorder& recorder, const QRectF& region, std::chrono::milliseconds length,
                        const QString& displayName = {})
{
    if (const auto error = startRecording(recorder, region, displayName)) {
        qWarning("%s", qPrintable(error->description));
        return {};
    }
    QTest::qWait(int(length.count()));
    return stopRecording(recorder);
}

} // namespace vantalo::testing
