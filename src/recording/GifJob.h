#pragma once

#include "GifRecoder.h"

#include <QList>
#include <QObject>
#include <QString>

#include <atomic>
#include <memory>
#include <thread>

namespace vantalo {

// What became of a fit or a recode.
struct GifJobOutcome
{
    enum class Kind
    {
        made,        // `path` holds the new GIF
        alreadyFits, // nothing made: the source is under the size already
        tooLarge,    // nothing made: even the smallest settings are over the size
        cancelled,
        failed,
    };
    Kind kind = Kind::failed;
    QString path;     // made: the new GIF, in the temporary directory, for the history to take in
    qint64 bytes = 0; // made: its size; alreadyFits: the source's
    QString message;  // one line for the user ("Can't fit under 1 MB: 1.4 MB at the smallest")
};

// A fit or a recode of a GIF file, run on a thread of its own. Progress and the outcome are told
// on the thread that made the job; deleting the job stops the work and waits for it.
class GifJob : public QObject
{
    Q_OBJECT
public:
    // Under `budget` bytes, keeping `frames`.
    static std::unique_ptr<GifJob> fit(const QString& source, qint64 budget, FrameSpan frames = {});
    // With `settings`, keeping `frames`.
    static std::unique_ptr<GifJob> recode(const QString& source, const OutputSettings& settings,
                                          FrameSpan frames);
    ~GifJob() override;

    void cancel();
    bool isRunning() const { return !m_finished; }
    double progress() const { return m_progress; }
    // What it is doing, for a progress line ("Fitting under 10 MB").
    QString title() const { return m_title; }

Q_SIGNALS:
    void progressed(double fraction);
    void finished(const vantalo::GifJobOutcome& outcome);

private:
    explicit GifJob(QString title);
    void start(std::function<GifJobOutcome(const RecodeControl&)> work);

    QString m_title;
    std::atomic<double> m_shownProgress{0.0}; // the last told, on the worker's side
    double m_progress = 0.0;
    bool m_finished = false;
    std::jthread m_thread;
};

} // namespace vantalo
