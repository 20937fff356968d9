#pragma once

// Recording stand-ins for the capture flow's collaborators. Each writes what it is asked to do
// into one shared journal, so a test can check what happened and in which order.

#include "app/HistoryStore.h"
#include "app/HistoryWindowPresenter.h"
#include "app/PreviewPresenter.h"
#include "capture/CaptureCollaborators.h"
#include "capture/CaptureCoordinator.h"
#include "capture/RecordingToolbarState.h"
#include "hotkey/HotkeyRegistrar.h"
#include "recording/FrameEncoder.h"
#include "recording/FrameRecorder.h"

#include <QSemaphore>
#include <QStringList>
#include <QTimer>

#include <atomic>
#include <memory>

namespace vantalo::testing {

struct Journal
{
    QStringList entries;
    QStringList printed;
    void add(const QString& entry) { entries << entry; }
    LinePrinter printer()
    {
        return [this](const QString& line) { printed << line; };
    }
    bool has(const QString& entry) const { return entries.contains(entry); }
    qsizetype count(const QString& entry) const { return entries.count(entry); }
    // Position of the first entry equal to `entry`, or -1.
    qsizetype at(const QString& entry) const { return entries.indexOf(entry); }
};

// A stand-in that writes its calls into the journal.
struct Journaled
{
    explicit Journaled(Journal& journal) : m_j(journal) {}
    Journal& m_j;
};

inline QString rectText(const QRectF& r)
{
    return QStringLiteral("%1,%2 %3x%4").arg(r.x()).arg(r.y()).arg(r.width()).arg(r.height());
}

class FakeHotkey final : public HotkeyRegistrar, Journaled
{
public:
    using Journaled::Journaled;
    void registerHotkey(const Shortcut& shortcut, std::function<void()> handler) override
    {
        registered = shortcut;
        this->handler = std::move(handler);
        if (refuse && onPermissionDenied) {
            onPermissionDenied();
        }
    }
    void unregisterHotkey() override
    {
        m_j.add(QStringLiteral("hotkey.unregister"));
        handler = nullptr;
    }
    void press() const
    {
        if (handler) {
            handler();
        }
    }
    std::optional<QString> desktopTrigger() const override { return trigger; }

    Shortcut registered;
    std::optional<QString> trigger;
    std::function<void()> handler;
    bool refuse = false;
};

class FakeRecorder final : public FrameRecorder, Journaled
{
public:
    using Journaled::Journaled;
    void startRecording(const QRectF& region, const QString& displayName, int frameRate,
                        double maxDurationSeconds, StartDone done) override
    {
        m_j.add(QStringLiteral("recorder.display ") + displayName);
        m_j.add(QStringLiteral("recorder.start %1 @%2 max%3 x%4")
                    .arg(rectText(region))
                    .arg(frameRate)
                    .arg(maxDurationSeconds)
                    .arg(outputScale));
        auto result = startFailure ? std::expected<void, Failure>(std::unexpected(*startFailure))
                                   : std::expected<void, Failure>();
        recording = !startFailure;
        QTimer::singleShot(0, [done = std::move(done), result] { done(result); });
    }
    void stopRecording(StopDone done) override
    {
        m_j.add(QStringLiteral("recorder.stop"));
        std::expected<void, Failure> result;
        if (recording && stopFailure) {
            result = std::unexpected(*stopFailure);
        } else if (recording && frameSink) {
            // What was captured went to the sink as it came.
            for (const Frame& frame : frames) {
                frameSink(frame);
            }
        }
        recording = false;
        paused = false;
        QTimer::singleShot(0, [done = std::move(done), result] { done(result); });
    }
    void pauseRecording() override
    {
        m_j.add(QStringLiteral("recorder.pause"));
        paused = true;
    }
    void resumeRecording(const QRectF& region) override
    {
        m_j.add("recorder.resume " + rectText(region));
        paused = false;
    }
    bool isPaused() const override { return paused; }

    std::optional<Failure> startFailure;
    std::optional<Failure> stopFailure;
    FrameList frames{Frame{QImage(4, 2, QImage::Format_RGB32), 2}};
    bool recording = false;
    bool paused = false;
};

// Opens sessions that count the frames they are fed; finishing one (held by `gate` when set) gives
// "GIF89a frames=<count>", or `failure`.
class FakeEncoder final : public FrameEncoder
{
public:
    std::unique_ptr<EncodingSession> openSession() const override
    {
        ++sessionsOpened;
        return std::make_unique<Session>(*this);
    }
    mutable int sessionsOpened = 0;
    mutable std::atomic<int> sessionsFinished = 0;
    std::optional<Failure> failure;
    mutable std::atomic<double> lastDelay = 0;
    std::shared_ptr<QSemaphore> gate;
    mutable QSemaphore started;

private:
    class Session final : public EncodingSession
    {
    public:
        explicit Session(const FakeEncoder& encoder) : m_encoder(encoder) {}
        void addFrame(const Frame&) override { ++m_frames; }
        qsizetype frameCount() const override { return m_frames; }
        std::expected<QByteArray, Failure> finish(double delaySeconds) override
        {
            m_encoder.started.release();
            if (m_encoder.gate) {
                m_encoder.gate->acquire();
            }
            ++m_encoder.sessionsFinished;
            if (m_encoder.failure) {
                return std::unexpected(*m_encoder.failure);
            }
            m_encoder.lastDelay = delaySeconds;
            return QByteArrayLiteral("GIF89a frames=") + QByteArray::number(m_frames);
        }

    private:
        const FakeEncoder& m_encoder;
        qsizetype m_frames = 0;
    };
};

// The overlays: each call is written to the journal as "<name>.<call> <arguments>".
class FakeSelector final : public RegionSelector, Journaled
{
public:
    using Journaled::Journaled;
    void show(const std::optional<LastRegion>& last) override
    {
        m_j.add(QStringLiteral("selector.show") + (last ? " last " + rectText(last->region) : QString()));
    }
    void dismiss() override { m_j.add(QStringLiteral("selector.dismiss")); }
    QList<DisplayInfo> displays() const override { return displayList; }

    QList<DisplayInfo> displayList;
};

class FakeAdjuster final : public RegionAdjuster, Journaled
{
public:
    using Journaled::Journaled;
    void show(const DisplayInfo& d, const QRectF& r) override
    {
        m_j.add("preview.show " + d.name + ' ' + rectText(r));
    }
    void hide() override { m_j.add(QStringLiteral("preview.hide")); }
    void showCountdown(int secondsLeft) override
    {
        m_j.add("preview.countdown " + QString::number(secondsLeft));
    }
};

class FakeToolbar final : public ToolbarPresenter, Journaled
{
public:
    using Journaled::Journaled;
    void show(const QRectF& region, const QRectF& display) override
    {
        m_j.add("toolbar.show " + rectText(region) + " on " + rectText(display));
        shown = true;
    }
    void hide() override
    {
        m_j.add(QStringLiteral("toolbar.hide"));
        shown = false;
    }
    std::optional<QSizeF> panelSize() const override
    {
        return shown ? std::optional<QSizeF>(QSizeF(120, 80)) : std::nullopt;
    }
    void follow(const QRectF& region) override { m_j.add("toolbar.follow " + rectText(region)); }
    RecordingToolbarState& toolbarState() override { return state; }

    RecordingToolbarState state;
    bool shown = false;
};

class FakeBorder final : public BorderPresenter, Journaled
{
public:
    using Journaled::Journaled;
    void show(const QRectF& region, const QRectF&) override { m_j.add("border.show " + rectText(region)); }
    void hide() override { m_j.add(QStringLiteral("border.hide")); }
    void setPaused(bool paused) override { m_j.add(QStringLiteral("border.paused %1").arg(paused)); }
};

class FakePermission final : public ScreenCapturePermission
{
public:
    bool preflight() override { return granted; }
    void request() override { ++requests; }
    bool granted = true;
    int requests = 0;
};

// A coordinator over fakes, with pointers to them for the test to steer.
struct CoordinatorRig
{
    Journal journal;
    FakePermission permission;
    FakeHotkey* hotkey = nullptr;
    FakeHotkey* pauseHotkey = nullptr;
    FakeHotkey* lastRegionHotkey = nullptr;
    FakeRecorder* recorder = nullptr;
    std::shared_ptr<FakeEncoder> encoder = std::make_shared<FakeEncoder>();
    FakeSelector* selector = nullptr;
    FakeToolbar* toolbar = nullptr;
    FakeBorder* border = nullptr;
    FakeAdjuster* preview = nullptr;
    QList<bool> reported;
    QStringList gifs;

    std::unique_ptr<CaptureCoordinator> make(UserDefaults& defaults, const QString& temporaryDirectory)
    {
        auto coordinator = std::make_unique<CaptureCoordinator>(
            CaptureCollaborators{made(hotkey), made(recorder), encoder, made(selector), made(toolbar),
                                 made(border), made(preview), made(pauseHotkey), made(lastRegionHotkey)},
            defaults, permission, journal.printer(), temporaryDirectory);
        coordinator->onRecordingStateChanged = [this](bool recording) {
            reported << recording;
            journal.add(QStringLiteral("reported %1").arg(recording));
        };
        coordinator->onGifCreated = [this](const QString& path, RecordingEnd) {
            gifs << path;
            journal.add(QStringLiteral("gifCreated"));
        };
        return coordinator;
    }

private:
    template<class Fake> std::unique_ptr<Fake> made(Fake*& pointer)
    {
        auto fake = std::make_unique<Fake>(journal);
        pointer = fake.get();
        return fake;
    }
};

} // namespace vantalo::testing
