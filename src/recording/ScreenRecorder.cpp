#include "ScreenRecorder.h"

#include "CapturePlan.h"
#include "RecorderErrors.h"

#include <QGuiApplication>
#include <QLoggingCategory>
#include <QPainter>
#include <QPointer>
#include <QScreen>

#include <chrono>
#include <condition_variable>
#include <ctime>
#include <mutex>
#include <thread>
#include <utility>

Q_LOGGING_CATEGORY(lcRecorder, "vantalo.recorder", QtInfoMsg)

namespace vantalo {

using Clock = std::chrono::steady_clock;

namespace {
double threadCpuMs()
{
    timespec ts{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return double(ts.tv_sec) * 1e3 + double(ts.tv_nsec) / 1e6;
}
} // namespace

// One recording: the capture thread and what it shares with the GUI thread. The frames and the
// statistics belong to the capture thread until it has been joined.
struct ScreenRecorder::Job
{
    std::thread thread;
    std::mutex mutex;
    std::condition_variable wake;
    bool go = false;
    bool stop = false;
    // Slot 0's time; each resume moves it on by the time paused, so the timeline is recorded time.
    Clock::time_point start;
    Clock::time_point stoppedAt; // when the stop was asked for; the timeline ends there
    bool paused = false;
    Clock::time_point pausedAt;
    std::optional<QRectF> movedTo; // where to go on from after the pause, if elsewhere

    std::function<void(const Frame&)> sink;
    std::function<bool()> sinkIsBehind;
    CaptureStats stats;

    void requestStop()
    {
        {
            std::lock_guard lock(mutex);
            if (!stop) {
                stop = true;
                stoppedAt = paused ? pausedAt : Clock::now();
            }
        }
        wake.notify_all();
    }
    void pause()
    {
        {
            std::lock_guard lock(mutex);
            if (paused || stop) {
                return;
            }
            paused = true;
            pausedAt = Clock::now();
        }
        wake.notify_all();
    }
    void resume(const QRectF& region)
    {
        {
            std::lock_guard lock(mutex);
            if (!paused || stop) {
                return;
            }
            paused = false;
            if (go) {
                start += Clock::now() - pausedAt;
            }
            movedTo = region;
        }
        wake.notify_all();
    }
    Clock::time_point startTime()
    {
        std::lock_guard lock(mutex);
        return start;
    }
    void join()
    {
        if (thread.joinable()) {
            thread.join();
        }
    }
};

double ScreenRecorder::screenPixelRatio(const QString& displayName)
{
    for (const QScreen* screen : QGuiApplication::screens()) {
        if (screen->name() == displayName) {
            return screen->devicePixelRatio();
        }
    }
    return qGuiApp->devicePixelRatio();
}

ScreenRecorder::ScreenRecorder(std::unique_ptr<CaptureBackend> backend, PixelRatio devicePixelRatio,
                               LinePrinter print)
    : m_backend(std::move(backend)), m_devicePixelRatio(std::move(devicePixelRatio)),
      m_print(std::move(print))
{
    m_durationTimer.setInterval(500);
    connect(&m_durationTimer, &QTimer::timeout, this, &ScreenRecorder::checkDuration);
}

ScreenRecorder::~ScreenRecorder()
{
    if (m_job) {
        // Quitting while the desktop is still asking which screen to share must not wait for it.
        m_backend->abort();
        m_job->requestStop();
        m_job->join();
    }
}

void ScreenRecorder::waitForRepaints(CaptureStream& stream, const QImage& before, Job& job)
{
    const auto began = Clock::now();
    const auto limit = began + std::chrono::milliseconds(200);
    int grabs = 0;
    for (;;) {
        auto grabbed = stream.grab();
        ++grabs;
        if (!grabbed || (*grabbed && !showsUnpaintedWindows(**grabbed, before))) {
            break;
        }
        std::unique_lock lock(job.mutex);
        if (Clock::now() >= limit ||
            job.wake.wait_for(lock, std::chrono::milliseconds(10), [&] { return job.stop; })) {
            break;
        }
    }
    qCDebug(lcRecorder, "the region showed its windows again after %.0f ms (%d grabs)",
            std::chrono::duration<double, std::milli>(Clock::now() - began).count(), grabs);
}

void ScreenRecorder::startRecording(const QRectF& region, const QString& displayName, int frameRate,
                                    double maxDurationSeconds, StartDone done)
{
    if (m_isRecording || m_starting) {
        QTimer::singleShot(0, this, [done = std::move(done)] { done({}); });
        return;
    }
    if (!frameSink) {
        QTimer::singleShot(0, this, [done = std::move(done)] {
            done(std::unexpected(Failure{QStringLiteral("No frame sink: nothing would keep the frames")}));
        });
        return;
    }
    m_frameRate = frameRate;
    m_maxDurationSeconds = maxDurationSeconds;
    // A recording that ended on a stream error still has its thread: let it go.
    finishJob();

    m_starting = true;
    auto job = std::make_shared<Job>();
    job->sink = frameSink;
    job->sinkIsBehind = frameSinkIsBehind;
    m_job = job;
    const double dpr = m_devicePixelRatio ? m_devicePixelRatio(displayName) : 1.0;
    m_backend->prepare();
    // The clicks and keys go into a log of this recording's own, drawn by its capture thread.
    const InputShown shown = m_input ? inputShown : InputShown{};
    auto inputLog = shown.any() ? std::make_shared<InputEventLog>() : nullptr;
    if (inputLog && !m_input->start(shown, inputLog)) {
        inputLog.reset();
    }
    // Handed to this recording's capture thread alone.
    const QImage before = std::exchange(screenBefore, QImage());
    QPointer self(this);
    CaptureBackend* backend = m_backend.get();

    // Reports back to the GUI thread; dropped if the recorder is gone by then.
    const auto post = [self](auto&& call) {
        QMetaObject::invokeMethod(
            self.data(),
            [self, call = std::forward<decltype(call)>(call)]() mutable {
                if (self) {
                    call(*self);
                }
            },
            Qt::QueuedConnection);
    };

    job->thread = std::thread([job, backend, region, displayName, frameRate, dpr, post, before, shown,
                               inputLog, outputScale = outputScale == 1 ? 1 : 2,
                               done = std::move(done)]() mutable {
        auto displays = backend->displays();
        std::expected<std::unique_ptr<CaptureStream>, Failure> stream = std::unexpected(Failure{});
        std::optional<CapturePlan> plan;
        if (!displays) {
            stream = std::unexpected(displays.error());
        } else if (!(plan = planCapture(*displays, region, dpr, displayName, outputScale))) {
            stream = std::unexpected(failureOf(ScreenRecorderError::noDisplayFound));
        } else {
            stream = backend->openStream(plan->nativeRect);
        }
        if (!stream) {
            post([done = std::move(done), error = stream.error()](ScreenRecorder& recorder) {
                recorder.m_starting = false;
                recorder.finishJob();
                done(std::unexpected(error));
            });
            return;
        }
        qCDebug(lcRecorder) << "capturing" << plan->nativeRect << "of" << plan->display.name << "scale"
                            << plan->scale;
        if (before.size() == plan->display.nativeGeometry.size()) {
            waitForRepaints(**stream,
                            before.copy(plan->nativeRect.translated(-plan->display.nativeGeometry.topLeft())),
                            *job);
        }
        post([done = std::move(done), job](ScreenRecorder& recorder) {
            recorder.m_starting = false;
            recorder.m_isRecording = true;
            recorder.m_paused = false;
            recorder.m_recordedBefore = 0;
            recorder.m_startTime.emplace();
            recorder.m_startTime->start();
            const quint64 generation = ++recorder.m_generation;
            // The timer is set up by a task of its own, which a quick stop may overtake.
            QMetaObject::invokeMethod(
                &recorder, [&recorder, generation] { recorder.startDurationTimer(generation); },
                Qt::QueuedConnection);
            {
                std::lock_guard lock(job->mutex);
                job->go = true;
                job->start = Clock::now();
            }
            job->wake.notify_all();
            done({});
        });

        {
            std::unique_lock lock(job->mutex);
            job->wake.wait(lock, [&] { return job->go || job->stop; });
            if (job->stop) {
                return;
            }
        }
        const double cpuAtStart = threadCpuMs();
        // The totals of the recording, once it ends either way.
        long long written = 0; // slots handed on so far
        const auto closeStats = [&](Clock::time_point end) {
            CaptureStats& stats = job->stats;
            stats.frames = written;
            stats.threadCpuMs = threadCpuMs() - cpuAtStart;
            stats.seconds = std::chrono::duration<double>(end - job->startTime()).count();
            stats.sourceFrames = (*stream)->sourceFrames();
            qCDebug(lcRecorder,
                    "capture stopped: %lld frames over %.3f s (%lld new pictures, %lld late, %lld while the "
                    "encoder was behind)",
                    stats.frames, stats.seconds, stats.pictures, stats.late, stats.encoderBehind);
        };
        const auto period = std::chrono::nanoseconds(1'000'000'000LL / frameRate);
        // After a pause, the same size from another place: the frames go on at the GIF's size.
        const auto moveStream = [&](const QRectF& region) {
            const std::optional<CapturePlan> moved =
                planCapture(*displays, region, dpr, plan->display.name, outputScale);
            if (!moved || moved->nativeRect == plan->nativeRect || moved->outputSize != plan->outputSize) {
                return;
            }
            auto reopened = backend->openStream(moved->nativeRect);
            if (!reopened) {
                qCWarning(lcRecorder) << "the region stays where it was:" << reopened.error().description;
                return;
            }
            *stream = std::move(*reopened);
            plan = moved;
            qCDebug(lcRecorder) << "capturing" << plan->nativeRect << "from now on";
        };
        std::optional<Frame> last; // the latest picture
        // Slots before `upTo` show the latest picture. Before the first one there is nothing to
        // show: those slots are owed, and the first picture stands in for them.
        const auto fill = [&](long long upTo) {
            if (!last) {
                return;
            }
            for (; written < upTo; ++written) {
                job->sink(*last);
            }
        };
        for (;;) {
            // The latest slot due, never a burst of the ones missed: they repeat the frame before.
            const Clock::time_point start = job->startTime();
            const long long slot = std::max(written, latestSlotDue(Clock::now() - start, frameRate));
            const Clock::time_point due = start + slotTime(slot, frameRate);
            std::optional<QRectF> movedTo;
            {
                std::unique_lock lock(job->mutex);
                if (job->wake.wait_until(lock, due, [&] { return job->stop || job->paused; })) {
                    if (job->stop) {
                        break;
                    }
                    // Paused: the slots before the pause are the last of this span; then nothing
                    // until the resume, which moves the timeline's start on by the time paused.
                    const auto before = slotsBefore(job->pausedAt - job->start, frameRate);
                    lock.unlock();
                    fill(before);
                    lock.lock();
                    job->wake.wait(lock, [&] { return job->stop || !job->paused; });
                    if (job->stop) {
                        break;
                    }
                }
                // Also where a pause and its resume both came while a picture was being taken.
                movedTo = std::exchange(job->movedTo, std::nullopt);
            }
            if (movedTo) {
                moveStream(*movedTo);
                continue;
            }
            fill(slot);
            if (last && job->sinkIsBehind && job->sinkIsBehind()) {
                ++job->stats.encoderBehind;
                fill(slot + 1);
                continue;
            }
            const Clock::time_point began = Clock::now();
            if (began - due > period / 4) {
                ++job->stats.late;
            }
            auto grabbed = (*stream)->grab();
            job->stats.grabMsTotal += std::chrono::duration<double, std::milli>(Clock::now() - began).count();
            if (!grabbed) {
                closeStats(Clock::now());
                post([job, error = grabbed.error()](ScreenRecorder& recorder) {
                    recorder.handleStreamError(job, error.description);
                });
                return;
            }
            if (!*grabbed || (*grabbed)->size() != plan->nativeRect.size()) {
                ++job->stats.failedGrabs;
            } else {
                QImage image = std::move(**grabbed);
                if (plan->scale == 1 && image.size() != plan->outputSize) {
                    image = image.scaled(plan->outputSize, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
                }
                if (inputLog) {
                    const double pointPixels =
                        double(image.width()) * outputScale / std::max(1, plan->outputSize.width());
                    drawInput(image, plan->nativeRect, pointPixels, inputLog->recent(began), began, shown);
                }
                // An unchanged screen costs one image, however long it stays unchanged.
                if (last && image == last->pixels) {
                    image = last->pixels;
                    ++job->stats.sharedFrames;
                }
                last = Frame{image, plan->scale};
                ++job->stats.pictures;
            }
            fill(slot + 1);
        }
        // The slots that began before the stop, including any that passed while the last picture
        // was being taken.
        Clock::time_point stoppedAt;
        {
            std::lock_guard lock(job->mutex);
            stoppedAt = job->stoppedAt;
        }
        fill(slotsBefore(stoppedAt - job->startTime(), frameRate));
        closeStats(stoppedAt);
    });
}

void ScreenRecorder::startDurationTimer(quint64 generation)
{
    if (!m_isRecording || generation != m_generation) {
        return; // stopped before this task ran
    }
    m_timerMaxDuration = m_maxDurationSeconds;
    m_durationTimer.start();
}

double ScreenRecorder::recordedSeconds() const
{
    return m_recordedBefore + (m_startTime ? double(m_startTime->elapsed()) / 1000.0 : 0.0);
}

void ScreenRecorder::pauseRecording()
{
    if (!m_isRecording || !m_job || m_paused) {
        return;
    }
    m_job->pause();
    m_paused = true;
    m_recordedBefore = recordedSeconds();
    m_startTime.reset();
}

void ScreenRecorder::resumeRecording(const QRectF& region)
{
    if (!m_isRecording || !m_job || !m_paused) {
        return;
    }
    m_job->resume(region);
    m_paused = false;
    m_startTime.emplace();
    m_startTime->start();
}

void ScreenRecorder::checkDuration()
{
    if (!m_isRecording) {
        return;
    }
    if (recordedSeconds() >= m_timerMaxDuration) {
        m_durationTimer.stop();
        if (onMaxDurationReached) {
            onMaxDurationReached();
        }
    }
}

void ScreenRecorder::stopRecording(StopDone done)
{
    if (!m_isRecording || !m_job) {
        QTimer::singleShot(0, this, [done = std::move(done)] { done({}); });
        return;
    }
    m_durationTimer.stop();
    ++m_generation;
    stopInput();
    // The capture thread wakes at once; at most a grab in progress is waited for.
    m_job->requestStop();
    m_job->join();
    m_lastStats = m_job->stats;
    m_job.reset();
    m_isRecording = false;
    m_paused = false;
    m_startTime.reset();
    m_recordedBefore = 0;
    QTimer::singleShot(0, this, [done = std::move(done)] { done({}); });
}

void ScreenRecorder::handleStreamError(const std::shared_ptr<Job>& job, const QString& description)
{
    if (job == m_job) {
        stopInput();
        m_isRecording = false;
        m_paused = false;
        m_durationTimer.stop();
    }
    m_print(QStringLiteral("Stream stopped with error: ") + description);
}

void ScreenRecorder::stopInput()
{
    if (m_input) {
        m_input->stop();
    }
}

void ScreenRecorder::finishJob()
{
    stopInput();
    if (m_job) {
        m_job->requestStop();
        m_job->join();
        m_lastStats = m_job->stats;
        m_job.reset();
    }
}

} // namespace vantalo
