#pragma once

// A recording's steps, each waited for: the start answers its failure, if any; the stop, the frames
// (none where it failed or never answered); a whole recording of a given length.
#include "recording/FrameRecorder.h"

#include <QTest>

#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <optional>

namespace vantalo::testing {

// The frames a recorder hands over, kept for the test; the start below gives a recorder without a
// sink of the test's own one of these.
struct CollectedFrames
{
    std::mutex mutex;
    FrameList frames;
};
inline std::map<const FrameRecorder*, std::shared_ptr<CollectedFrames>>& collectors()
{
    static std::map<const FrameRecorder*, std::shared_ptr<CollectedFrames>> map;
    return map;
}

inline std::optional<Failure> startRecording(FrameRecorder& recorder, const QRectF& region,
                                             const QString& displayName = {}, double maxSeconds = 30)
{
    if (!recorder.frameSink) {
        auto collected = std::make_shared<CollectedFrames>();
        collectors()[&recorder] = collected;
        recorder.frameSink = [collected](const Frame& frame) {
            const std::lock_guard lock(collected->mutex);
            collected->frames.append(frame);
        };
    }
    std::optional<std::expected<void, Failure>> started;
    recorder.startRecording(region, displayName, 15, maxSeconds,
                            [&](std::expected<void, Failure> result) { started = result; });
    if (!QTest::qWaitFor([&] { return started.has_value(); }, 60000)) {
        return Failure{QStringLiteral("start never completed")};
    }
    return *started ? std::nullopt : std::optional(started->error());
}

// The frames collected since the start (none when the test's own sink took them).
inline FrameList stopRecording(FrameRecorder& recorder)
{
    bool stopped = false;
    recorder.stopRecording([&](std::expected<void, Failure>) { stopped = true; });
    if (!QTest::qWaitFor([&] { return stopped; }, 30000)) {
        qWarning("stop never completed");
    }
    const auto collected = collectors().find(&recorder);
    if (collected == collectors().end()) {
        return {};
    }
    const std::shared_ptr<CollectedFrames> frames = collected->second;
    collectors().erase(collected);
    recorder.frameSink = nullptr;
    const std::lock_guard lock(frames->mutex);
    return std::move(frames->frames);
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
