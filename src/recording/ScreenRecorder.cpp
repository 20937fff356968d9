#include "ScreenRecorder.h"

#include "CapturePlan.h"
#include "RecorderErrors.h"

#include <QLoggingCategory>
#include <QPainter>
#include <QPointer>

#include <chrono>
#include <condition_variable>
#include <ctime>
#include <mutex>
#include <thread>

Q_LOGGING_CATEGORY(lcRecorder, "vantalo.recorder", QtInfoMsg)

namespace vantalo {

using Clock = std::chrono::steady_clock;

namespace {
double threadCpuMs()
{
    timespec ts{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return ts.tv_sec * 1e3 + ts.tv_nsec / 1e6;
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
    Clock::time_point start;

    FrameList frames;
    std::function<void(const Frame&)> sink;
    CaptureStats stats;

    void requestStop()
    {
        {
            std::lock_guard lock(mutex);
            stop = true;
        }
        wake.notify_all();
    }
    void join()
    {
        if (thread.joinable()) {
            thread.join();
        }
    }
};

ScreenRecorder::ScreenRecorder(std::unique_ptr<CaptureBackend> backend,
                               std::function<double()> devicePixelRatio, LinePrinter print)
    : m_backend(std::move(backend)), m_devicePixelRatio(std::move(devicePixelRatio)),
      m_print(std::move(print))
{
    m_durationTimer.setInterval(500);
    connect(&m_durationTimer, &QTimer::timeout, this, &ScreenRecorder::checkDuration);
}

ScreenRecorder::~ScreenRecorder()
{
    if (m_job) {
        m_job->requestStop();
        m_job->join();
    }
}

void ScreenRecorder::startRecording(const QRectF& region, const QString& displayName, int frameRate,
                                    double maxDurationSeconds, StartDone done)
{
    if (m_isRecording || m_starting) {
        QTimer::singleShot(0, this, [done = std::move(done)] { done({}); });
        return;
    }
    m_frameRate = frameRate;
    m_maxDurationSeconds = maxDurationSeconds;
    // A recording that ended on a stream error still has its thread and frames: let them go.
    finishJob();

    m_starting = true;
    auto job = std::make_shared<Job>();
    job->sink = frameSink;
    m_job = job;
    const double dpr = m_devicePixelRatio ? m_devicePixelRatio() : 1.0;
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

    job->thread = std::thread([job, backend, region, displayName, frameRate, dpr, post,
                               done = std::move(done)]() mutable {
        auto displays = backend->displays();
        std::expected<std::unique_ptr<CaptureStream>, Failure> stream = std::unexpected(Failure{});
        std::optional<CapturePlan> plan;
        if (!displays) {
            stream = std::unexpected(displays.error());
        } else if (!(plan = planCapture(*displays, region, dpr, displayName))) {
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
        post([done = std::move(done), job](ScreenRecorder& recorder) {
            recorder.m_starting = false;
            recorder.m_isRecording = true;
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
        const auto closeStats = [&] {
            job->stats.threadCpuMs = threadCpuMs() - cpuAtStart;
            job->stats.seconds = std::chrono::duration<double>(Clock::now() - job->start).count();
            job->stats.sourceFrames = (*stream)->sourceFrames();
        };
        const auto period = std::chrono::nanoseconds(1'000'000'000LL / frameRate);
        long long slot = 0;
        QImage previous;
        for (;;) {
            const Clock::time_point due = job->start + slotTime(slot, frameRate);
            {
                std::unique_lock lock(job->mutex);
                if (job->wake.wait_until(lock, due, [&] { return job->stop; })) {
                    break;
                }
            }
            const Clock::time_point began = Clock::now();
            if (began - due > period / 4) {
                ++job->stats.late;
            }
            auto grabbed = (*stream)->grab();
            job->stats.grabMsTotal += std::chrono::duration<double, std::milli>(Clock::now() - began).count();
            if (!grabbed) {
                closeStats();
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
                // An unchanged screen costs one image, however long it stays unchanged.
                if (!previous.isNull() && image == previous) {
                    image = previous;
                    ++job->stats.sharedFrames;
                }
                previous = image;
                if (job->sink) {
                    job->sink(Frame{image, plan->scale});
                } else {
                    job->frames.append(Frame{image, plan->scale});
                }
                ++job->stats.frames;
            }
            const PacingStep step = nextFrameSlot(slot, Clock::now() - job->start, frameRate);
            job->stats.skipped += step.skipped;
            slot = step.nextSlot;
        }
        closeStats();
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

void ScreenRecorder::checkDuration()
{
    if (!m_startTime) {
        return;
    }
    if (m_startTime->elapsed() / 1000.0 >= m_timerMaxDuration) {
        m_durationTimer.stop();
        if (onMaxDurationReached) {
            onMaxDurationReached();
        }
    }
}

void ScreenRecorder::stopRecording(StopDone done)
{
    if (!m_isRecording || !m_job) {
        QTimer::singleShot(0, this, [done = std::move(done)] { done(FrameList{}); });
        return;
    }
    m_durationTimer.stop();
    ++m_generation;
    // The capture thread wakes at once; at most a grab in progress is waited for.
    m_job->requestStop();
    m_job->join();
    FrameList frames = std::move(m_job->frames);
    m_lastStats = m_job->stats;
    m_job.reset();
    m_isRecording = false;
    m_startTime.reset();
    QTimer::singleShot(
        0, this, [done = std::move(done), frames = std::move(frames)]() mutable { done(std::move(frames)); });
}

void ScreenRecorder::handleStreamError(const std::shared_ptr<Job>& job, const QString& description)
{
    if (job == m_job) {
        m_isRecording = false;
        m_durationTimer.stop();
    }
    m_print(QStringLiteral("Stream stopped with error: ") + description);
}

void ScreenRecorder::finishJob()
{
    if (m_job) {
        m_job->requestStop();
        m_job->join();
        m_lastStats = m_job->stats;
        m_job.reset();
    }
}

} // namespace vantalo
