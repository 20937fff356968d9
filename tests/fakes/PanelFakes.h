#pragma once

#include "common/Scheduler.h"
#include "history/GifHistoryStore.h"
#include "recording/GifWriter.h"
#include "sharing/Uploader.h"

#include <QFile>
#include <QList>
#include <QString>
#include <QTemporaryDir>

#include <map>
#include <vector>

namespace vantalo::test {

// A clock the test moves by hand.
class ManualScheduler final : public Scheduler
{
public:
    TaskId schedule(std::chrono::milliseconds delay, std::function<void()> task) override
    {
        const TaskId id = m_nextId++;
        m_tasks.emplace(id, Task{m_now + delay, std::move(task)});
        return id;
    }
    void cancel(TaskId id) override { m_tasks.erase(id); }

    // Moves the clock forward, running what falls due in order.
    void advance(std::chrono::milliseconds by)
    {
        const auto until = m_now + by;
        for (;;) {
            auto due = m_tasks.end();
            for (auto it = m_tasks.begin(); it != m_tasks.end(); ++it) {
                if (it->second.at <= until && (due == m_tasks.end() || it->second.at < due->second.at)) {
                    due = it;
                }
            }
            if (due == m_tasks.end()) {
                break;
            }
            m_now = due->second.at;
            auto task = std::move(due->second.task);
            m_tasks.erase(due);
            task();
        }
        m_now = until;
    }
    qsizetype pending() const { return qsizetype(m_tasks.size()); }

private:
    struct Task
    {
        std::chrono::milliseconds at;
        std::function<void()> task;
    };
    std::chrono::milliseconds m_now{0};
    std::map<TaskId, Task> m_tasks;
    TaskId m_nextId = 1;
};

// An uploader the test answers for.
class FakeUploader final : public Uploader
{
public:
    struct Call
    {
        QByteArray data;
        QString filename;
        Progress progress;
        Completion done;
    };
    void upload(const QByteArray& data, const QString& filename, Progress progress, Completion done) override
    {
        calls.push_back(Call{data, filename, std::move(progress), std::move(done)});
    }
    std::vector<Call> calls;
};

// A real GIF of `frames` frames, each a different shade, `size` pixels.
inline QByteArray testGif(QSize size, int frames = 3)
{
    QList<EncodedFrame> encoded;
    for (int f = 0; f < frames; ++f) {
        const std::vector<quint8> indices(size_t(size.width()) * size_t(size.height()), 1);
        encoded.append(EncodedFrame{QRect(QPoint(), size),
                                    {qRgb(0, 0, 0), qRgb(40 + 60 * f, 120, 200 - 50 * f)},
                                    -1,
                                    2,
                                    lzwCompress(indices, 2)});
    }
    return assembleGif(size, encoded, gifDelays(frames, 1.0 / 15));
}

inline QString writeFile(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size()) {
        return {};
    }
    return path;
}

// A history of its own in a temporary directory, for one test.
struct TemporaryHistory
{
    QTemporaryDir dir;
    GifHistoryStore store{dir.filePath(QStringLiteral("Vantalo")), [](const QString&) {}};

    // A real GIF kept in the history, as after a recording.
    GifHistoryItem keep(QSize size, int frames = 3)
    {
        return *store.addGif(writeFile(dir.filePath(QStringLiteral("new.gif")), testGif(size, frames)));
    }
};

} // namespace vantalo::test
