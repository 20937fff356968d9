#include "GifJob.h"

#include "common/Formatting.h"

#include <QDir>
#include <QFile>
#include <QUuid>

namespace vantalo {

namespace {

QString newOutputPath()
{
    return QDir::temp().filePath(
        QStringLiteral("vantalo-edit-%1.gif").arg(QUuid::createUuid().toString(QUuid::WithoutBraces)));
}

GifJobOutcome failedOrCancelled(const Failure& failure, const RecodeControl& control)
{
    if (control.stop.stop_requested()) {
        return {GifJobOutcome::Kind::cancelled, {}, 0, {}};
    }
    return {GifJobOutcome::Kind::failed, {}, 0, failure.description};
}

} // namespace

GifJob::GifJob(QString title) : m_title(std::move(title)) {}

GifJob::~GifJob()
{
    m_thread.request_stop();
    if (m_thread.joinable()) {
        m_thread.join();
    }
}

std::unique_ptr<GifJob> GifJob::fit(const QString& source, qint64 budget, FrameSpan frames)
{
    const QString under = budgetLabel(budget);
    std::unique_ptr<GifJob> job(new GifJob(QStringLiteral("Fitting under %1").arg(under)));
    job->start([source, budget, frames, under](const RecodeControl& given) -> GifJobOutcome {
        RecodeControl control = given;
        control.frames = frames;
        const QString target = newOutputPath();
        const auto fitted = fitGif(source, budget, target, control);
        if (fitted && fitted->unchanged) {
            // Read through, so known to be a whole GIF; the copy would only be a duplicate entry.
            QFile::remove(target);
            return {GifJobOutcome::Kind::alreadyFits,
                    {},
                    fitted->bytes,
                    QStringLiteral("Already under %1: %2").arg(under, fileSizeLabel(fitted->bytes))};
        }
        if (fitted) {
            return {GifJobOutcome::Kind::made, target, fitted->bytes, {}};
        }
        if (fitted.error().smallest && !control.stop.stop_requested()) {
            return {GifJobOutcome::Kind::tooLarge,
                    {},
                    0,
                    QStringLiteral("Can't fit under %1: %2 at the smallest")
                        .arg(under, fileSizeLabel(*fitted.error().smallest))};
        }
        return failedOrCancelled(fitted.error().failure, control);
    });
    return job;
}

std::unique_ptr<GifJob> GifJob::recode(const QString& source, const OutputSettings& settings,
                                       FrameSpan frames)
{
    std::unique_ptr<GifJob> job(new GifJob(QStringLiteral("Saving")));
    job->start([source, settings, frames](const RecodeControl& given) -> GifJobOutcome {
        RecodeControl control = given;
        control.frames = frames;
        const QString target = newOutputPath();
        const auto written = recodeGifFile(source, target, settings, control);
        if (written) {
            return {GifJobOutcome::Kind::made, target, written->bytes, {}};
        }
        return failedOrCancelled(written.error(), control);
    });
    return job;
}

void GifJob::start(std::function<GifJobOutcome(const RecodeControl&)> work)
{
    m_thread = std::jthread([this, work = std::move(work)](std::stop_token stop) {
        RecodeControl control;
        control.stop = stop;
        control.progress = [this](double fraction) {
            // A step of a percent is worth telling; finer ones would only flood the event loop.
            if (fraction - m_shownProgress.load() < 0.01) {
                return;
            }
            m_shownProgress = fraction;
            QMetaObject::invokeMethod(
                this,
                [this, fraction] {
                    m_progress = fraction;
                    Q_EMIT progressed(fraction);
                },
                Qt::QueuedConnection);
        };
        GifJobOutcome outcome = work(control);
        if (outcome.kind != GifJobOutcome::Kind::made && !outcome.path.isEmpty()) {
            QFile::remove(outcome.path);
        }
        QMetaObject::invokeMethod(
            this,
            [this, outcome = std::move(outcome)] {
                m_finished = true;
                Q_EMIT finished(outcome);
            },
            Qt::QueuedConnection);
    });
}

void GifJob::cancel()
{
    m_thread.request_stop();
}

} // namespace vantalo
