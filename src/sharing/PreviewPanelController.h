#pragma once

#include "ClipboardManager.h"
#include "PreviewPanelState.h"
#include "PreviewPanelView.h"
#include "Uploader.h"
#include "app/PreviewPresenter.h"
#include "common/Console.h"
#include "common/Scheduler.h"
#include "history/GifHistoryStore.h"
#include "recording/GifJob.h"

#include <QObject>
#include <QPointer>
#include <QRectF>
#include <QUuid>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

namespace vantalo {

// What the controller works with.
struct PreviewPanelServices
{
    GifHistoryStore& historyStore;
    // The S3 uploader, and the hosted one when this installation has a service (it then takes
    // every upload).
    std::unique_ptr<Uploader> cloudUploader;
    std::unique_ptr<Uploader> hostedUploader;
    std::unique_ptr<Scheduler> scheduler = std::make_unique<TimerScheduler>();
    // Whether translucent windows can fade (a compositing manager runs).
    std::function<bool()> compositing = [] { return true; };
    // Opens a file in its default application.
    std::function<void(const QUrl&)> openUrl;
    LinePrinter print = stdoutPrinter();
};

// The floating panel for a finished or chosen GIF, at the bottom-right corner of the primary
// screen: plays it, and offers upload, copy, fit, delete and open. It closes itself a minute after
// it was shown or after the last upload, copy or fit; never while a fit runs.
class PreviewPanelController : public QObject, public PreviewPresenter
{
    Q_OBJECT
public:
    static constexpr std::chrono::milliseconds autoDismissInterval{60000};
    static constexpr int screenInset = 24;
    static constexpr int fadeInMs = 220;
    static constexpr int fadeOutMs = 180;

    explicit PreviewPanelController(PreviewPanelServices services, QObject* parent = nullptr);
    ~PreviewPanelController() override;

    void show(const QString& gifPath, const std::optional<QUuid>& historyItemID) override;
    void dismiss() override;
    void fitShown(qint64 budget, bool replacing) override;
    void copyShown() override;
    void tell(const QString& notice) override { showNotice(notice); }
    bool isWorking() const override { return m_job != nullptr; }

    // The panel's frame, y-up: `inset` points in from the bottom-right of the usable area.
    static QRectF panelFrame(const QSizeF& size, const QRectF& visibleFrame);
    // The size badge's text; empty when the file's size cannot be read.
    static QString fileSizeText(const QString& gifPath);

    PreviewPanelView* panel() const { return m_panel; }
    const std::shared_ptr<PreviewPanelState>& panelState() const { return m_panelState; }
    std::optional<QUuid> currentHistoryItemID() const { return m_currentHistoryItemID; }
    bool hasAutoDismissTimer() const { return m_autoDismissTimer.has_value(); }

    // The panel's actions.
    void startUpload(const QString& gifPath);
    void copyGIFToClipboard(const QString& gifPath);
    void copyUploadedURL();
    void deleteGIF(const QString& gifPath);
    void openInDefaultApp(const QString& gifPath);
    // Fits the GIF under `budget` into a new history entry, shown once made. With `replacing`, the
    // entry fitted is deleted once the new one is kept.
    void fitUnder(const QString& gifPath, qint64 budget, bool replacing = false);
    void cancelWork();
    GifJob* runningJob() const { return m_job.get(); }

    static constexpr std::chrono::milliseconds noticeInterval{4000};

private:
    void resetAutoDismissTimer();
    void cancelAutoDismissTimer();
    void showFeedback(const QString& message);
    // A notice in the action row for a few seconds; with `action`, a button that calls `act`
    // meanwhile. `expired` runs when the notice goes by itself.
    void showNotice(const QString& notice, const QString& action = {}, std::function<void()> act = {},
                    std::function<void()> expired = {});
    void showTrashed(const GifHistoryStore::Trashed& trashed);
    void finishFit(const GifJobOutcome& outcome, const std::optional<QUuid>& fitted, bool replacing);
    void finishUpload(const std::shared_ptr<PreviewPanelState>& state,
                      const std::optional<QUuid>& historyItemID, const UploadOutcome& outcome);

    PreviewPanelServices m_services;
    QPointer<PreviewPanelView> m_panel;
    QPointer<FeedbackMessageWindow> m_feedback; // the message on show, replaced by the next one
    std::optional<Scheduler::TaskId> m_autoDismissTimer;
    std::shared_ptr<PreviewPanelState> m_panelState;
    ClipboardManager m_clipboardManager;
    std::optional<QUuid> m_currentHistoryItemID;
    QString m_currentPath;
    std::unique_ptr<GifJob> m_job;
    std::optional<Scheduler::TaskId> m_noticeTimer;
    std::function<void()> m_noticeAct; // the shown notice's button
};

} // namespace vantalo
