#include "PreviewPanelController.h"

#include "common/Formatting.h"
#include "common/Geometry.h"
#include "history/GifHistoryStore.h"

#include <QDesktopServices>
#include <QFile>
#include <QFileInfo>
#include <QGuiApplication>
#include <QLoggingCategory>
#include <QPropertyAnimation>
#include <QScreen>

namespace vantalo {

Q_LOGGING_CATEGORY(lcPanel, "vantalo.panel", QtInfoMsg)

PreviewPanelController::PreviewPanelController(PreviewPanelServices services, QObject* parent)
    : QObject(parent), m_services(std::move(services)), m_panelState(std::make_shared<PreviewPanelState>())
{
    if (!m_services.openUrl) {
        m_services.openUrl = [print = m_services.print](const QUrl& url) {
            if (!QDesktopServices::openUrl(url)) {
                print(QStringLiteral("No application opens ") + url.toLocalFile());
            }
        };
    }
}

PreviewPanelController::~PreviewPanelController()
{
    cancelAutoDismissTimer();
    if (m_noticeTimer) {
        m_services.scheduler->cancel(*m_noticeTimer);
    }
    delete m_panel.data();
}

QRectF PreviewPanelController::panelFrame(const QSizeF& size, const QRectF& visibleFrame)
{
    return QRectF(
        QPointF(visibleFrame.right() - size.width() - screenInset, visibleFrame.top() + screenInset), size);
}

QString PreviewPanelController::fileSizeText(const QString& gifPath)
{
    const QFileInfo info(gifPath);
    if (!info.exists() || !info.isFile()) {
        return {};
    }
    return fileSizeLabel(info.size());
}

void PreviewPanelController::show(const QString& gifPath, const std::optional<QUuid>& historyItemID)
{
    dismiss();
    m_currentHistoryItemID = historyItemID;
    m_currentPath = gifPath;
    const QString fileSize = fileSizeText(gifPath);
    m_panelState = std::make_shared<PreviewPanelState>();

    QScreen* screen = QGuiApplication::primaryScreen();
    if (!screen) {
        return;
    }
    const bool compositing = m_services.compositing();
    auto* view = new PreviewPanelView(gifPath, fileSize, m_panelState, compositing);
    view->setAttribute(Qt::WA_DeleteOnClose);
    // Each action holds the controller weakly: a panel can outlive it.
    const QPointer<PreviewPanelController> self(this);
    const auto bind = [self](auto action) {
        return [self, action](auto... arguments) {
            if (self) {
                action(*self, arguments...);
            }
        };
    };
    view->onUpload = bind([gifPath](PreviewPanelController& c) { c.startUpload(gifPath); });
    view->onCopy = bind([gifPath](PreviewPanelController& c) { c.copyGIFToClipboard(gifPath); });
    view->onCopyURL = bind([](PreviewPanelController& c) { c.copyUploadedURL(); });
    view->onDelete = bind([gifPath](PreviewPanelController& c) { c.deleteGIF(gifPath); });
    view->onOpenInApp = bind([gifPath](PreviewPanelController& c) { c.openInDefaultApp(gifPath); });
    view->onClose = bind([](PreviewPanelController& c) { c.dismiss(); });
    view->onFit = bind([gifPath](PreviewPanelController& c, qint64 budget) { c.fitUnder(gifPath, budget); });
    view->onCancelWork = bind([](PreviewPanelController& c) { c.cancelWork(); });
    view->onNoticeAction = bind([](PreviewPanelController& c) {
        if (const auto act = std::exchange(c.m_noticeAct, nullptr)) {
            act();
        }
    });
    view->onTrim = bind([gifPath, historyItemID](PreviewPanelController& c) {
        if (c.onTrim) {
            c.onTrim(gifPath, historyItemID);
        }
    });
    // The panel stays while its GIF is being dragged out; its minute starts again at the drop.
    view->onDragging = bind([](PreviewPanelController& c, bool dragging) {
        if (dragging) {
            c.cancelAutoDismissTimer();
        } else {
            c.resetAutoDismissTimer();
        }
    });

    // Worked out y-up, like every other placement, and converted once.
    const QRectF primary = screen->geometry();
    const QRectF visible = fromQtRect(screen->availableGeometry(), primary);
    const QRectF frame = toQtRect(panelFrame(view->fittingSize(), visible), primary);
    view->move(frame.topLeft().toPoint());
    if (compositing) {
        view->setWindowOpacity(0.0);
        view->show();
        auto* fade = new QPropertyAnimation(view, "windowOpacity", view);
        fade->setDuration(fadeInMs);
        fade->setEasingCurve(QEasingCurve::OutCubic);
        fade->setEndValue(1.0);
        fade->start(QAbstractAnimation::DeleteWhenStopped);
    } else {
        view->show();
    }
    view->raise();
    m_panel = view;
    resetAutoDismissTimer();
}

void PreviewPanelController::dismiss()
{
    cancelAutoDismissTimer();
    // A fit belongs to the panel it runs in.
    m_job.reset();
    if (!m_panel) {
        return;
    }
    const QPointer<PreviewPanelView> closing = m_panel;
    const QPointer<PreviewPanelController> self(this);
    const auto finish = [self, closing] {
        if (self && self->m_panel == closing) {
            self->m_panel = nullptr;
        }
        if (closing) {
            closing->close();
        }
    };
    if (!m_services.compositing()) {
        finish();
        return;
    }
    auto* fade = new QPropertyAnimation(closing, "windowOpacity", closing);
    fade->setDuration(fadeOutMs);
    fade->setEndValue(0.0);
    connect(fade, &QPropertyAnimation::finished, this, finish);
    fade->start(QAbstractAnimation::DeleteWhenStopped);
}

void PreviewPanelController::cancelAutoDismissTimer()
{
    if (m_autoDismissTimer) {
        m_services.scheduler->cancel(*m_autoDismissTimer);
        m_autoDismissTimer.reset();
    }
}

void PreviewPanelController::resetAutoDismissTimer()
{
    cancelAutoDismissTimer();
    if (m_job) {
        return; // the minute starts when the fit ends
    }
    const QPointer<PreviewPanelController> self(this);
    m_autoDismissTimer = m_services.scheduler->schedule(autoDismissInterval, [self] {
        if (self) {
            self->m_autoDismissTimer.reset();
            self->dismiss();
        }
    });
}

void PreviewPanelController::startUpload(const QString& gifPath)
{
    resetAutoDismissTimer();
    // The outcome belongs to this panel's state and item, whatever is shown by the time it arrives.
    const std::shared_ptr<PreviewPanelState> state = m_panelState;
    const std::optional<QUuid> historyItemID = m_currentHistoryItemID;
    if (!state->isUploading()) {
        state->setUploading(true);
    }

    QFile file(gifPath);
    if (!file.open(QIODevice::ReadOnly)) {
        finishUpload(state, historyItemID, std::unexpected(Failure{file.errorString()}));
        return;
    }
    const QByteArray data = file.readAll();
    Uploader& uploader = m_services.hostedUploader ? *m_services.hostedUploader : *m_services.cloudUploader;
    const QPointer<PreviewPanelController> self(this);
    uploader.upload(
        data, QFileInfo(gifPath).fileName(),
        [state](qint64 sent, qint64 total) {
            if (state->isUploading()) {
                state->setProgress(sent, total);
            }
        },
        [self, state, historyItemID](const UploadOutcome& outcome) {
            if (self) {
                self->finishUpload(state, historyItemID, outcome);
            }
        });
}

void PreviewPanelController::finishUpload(const std::shared_ptr<PreviewPanelState>& state,
                                          const std::optional<QUuid>& historyItemID,
                                          const UploadOutcome& outcome)
{
    if (!outcome) {
        showFeedback(QStringLiteral("Upload failed"));
        m_services.print(QStringLiteral("Upload error: ") + outcome.error().description);
        state->setUploading(false);
        // Why, on the panel where the actions stand, until they come back; where the settings
        // are the cause, the way to them.
        if (outcome.error().mendedInUploadSettings && onOpenUploadSettings) {
            showNotice(outcome.error().description, QStringLiteral("Preferences"), [self = QPointer(this)] {
                if (self && self->onOpenUploadSettings) {
                    self->onOpenUploadSettings();
                }
            });
        } else {
            showNotice(outcome.error().description);
        }
        return;
    }
    if (historyItemID) {
        m_services.historyStore.updateUploadURL(*historyItemID, outcome->url);
    }
    state->setUploadedURL(outcome->url);
    m_clipboardManager.copyLink(outcome->url);
    showFeedback(QStringLiteral("Copied!"));
    state->setUploading(false);
}

void PreviewPanelController::copyGIFToClipboard(const QString& gifPath)
{
    resetAutoDismissTimer();
    QFile file(gifPath);
    if (!file.open(QIODevice::ReadOnly)) {
        m_services.print(QStringLiteral("Copy error: ") + file.errorString());
        return;
    }
    m_clipboardManager.copyGIF(file.readAll(), gifPath);
    showFeedback(QStringLiteral("Copied!"));
}

void PreviewPanelController::copyUploadedURL()
{
    const std::optional<QUrl> url = m_panelState->uploadedURL();
    if (!url) {
        return;
    }
    resetAutoDismissTimer();
    m_clipboardManager.copyLink(*url);
    showFeedback(QStringLiteral("Copied!"));
}

void PreviewPanelController::deleteGIF(const QString& gifPath)
{
    bool deleted = false;
    if (m_currentHistoryItemID) {
        for (const GifHistoryItem& item : m_services.historyStore.loadItems()) {
            if (item.id != *m_currentHistoryItemID) {
                continue;
            }
            // Into the desktop's trash, with a few seconds to take it back here.
            auto trashed = m_services.historyStore.moveToTrash(item);
            if (trashed) {
                showTrashed(*trashed);
                return;
            }
            m_services.print(QStringLiteral("The trash did not take the GIF (%1): it is deleted")
                                 .arg(trashed.error().description));
            m_services.historyStore.deleteItem(item);
            deleted = true;
            break;
        }
    }
    if (!deleted) {
        QFile::remove(gifPath);
    }
    dismiss();
}

void PreviewPanelController::showTrashed(const GifHistoryStore::Trashed& trashed)
{
    cancelAutoDismissTimer();
    const QPointer<PreviewPanelController> self(this);
    const std::shared_ptr<PreviewPanelState> state = m_panelState;
    showNotice(
        QStringLiteral("Moved to Trash"), QStringLiteral("Undo"),
        [self, state, trashed] {
            if (!self || self->m_panelState != state) {
                return;
            }
            if (!self->m_services.historyStore.restore(trashed)) {
                self->showNotice(QStringLiteral("The trash no longer has it"));
                return;
            }
            if (self->m_noticeTimer) {
                self->m_services.scheduler->cancel(*std::exchange(self->m_noticeTimer, std::nullopt));
            }
            state->setNotice({});
            self->resetAutoDismissTimer();
        },
        // The panel of a GIF in the trash goes when its Undo does.
        [self, state] {
            if (self && self->m_panelState == state) {
                self->dismiss();
            }
        });
}

void PreviewPanelController::openInDefaultApp(const QString& gifPath)
{
    m_services.openUrl(QUrl::fromLocalFile(gifPath));
}

void PreviewPanelController::fitShown(qint64 budget, bool replacing)
{
    if (m_panel) {
        fitUnder(m_currentPath, budget, replacing);
    }
}

void PreviewPanelController::copyShown()
{
    if (m_panel) {
        copyGIFToClipboard(m_currentPath);
    }
}

void PreviewPanelController::fitUnder(const QString& gifPath, qint64 budget, bool replacing)
{
    if (m_job) {
        return; // one at a time; the row shows the one running
    }
    cancelAutoDismissTimer();
    m_job = GifJob::fit(gifPath, budget);
    const std::shared_ptr<PreviewPanelState> state = m_panelState;
    state->setNotice({});
    state->setWork(m_job->title());
    connect(m_job.get(), &GifJob::progressed, this,
            [state](double fraction) { state->setWorkProgress(fraction); });
    connect(m_job.get(), &GifJob::finished, this,
            [this, state, fitted = m_currentHistoryItemID, replacing](const GifJobOutcome& outcome) {
                state->setWork({});
                // Deleted once this signal has returned.
                m_job.release()->deleteLater();
                finishFit(outcome, fitted, replacing);
                if (onWorkFinished) {
                    onWorkFinished();
                }
            });
}

void PreviewPanelController::cancelWork()
{
    if (m_job) {
        m_job->cancel();
    }
}

void PreviewPanelController::finishFit(const GifJobOutcome& outcome, const std::optional<QUuid>& fitted,
                                       bool replacing)
{
    using Kind = GifJobOutcome::Kind;
    qCDebug(lcPanel).noquote() << "fit ended:" << int(outcome.kind) << outcome.message;
    if (outcome.kind != Kind::made) {
        if (outcome.kind == Kind::failed) {
            m_services.print(QStringLiteral("Fit error: ") + outcome.message);
            showNotice(QStringLiteral("Can't fit this GIF"));
        } else if (!outcome.message.isEmpty()) {
            showNotice(outcome.message);
        }
        resetAutoDismissTimer();
        return;
    }
    auto item = m_services.historyStore.addGif(outcome.path);
    if (!item) {
        m_services.print(QStringLiteral("Failed to save GIF to history: ") + item.error().description);
        show(outcome.path, std::nullopt);
        return;
    }
    if (replacing && fitted) {
        for (const GifHistoryItem& kept : m_services.historyStore.loadItems()) {
            if (kept.id == *fitted) {
                m_services.historyStore.deleteItem(kept);
                break;
            }
        }
    }
    show(m_services.historyStore.filePath(*item), item->id);
}

void PreviewPanelController::showNotice(const QString& notice, const QString& action,
                                        std::function<void()> act, std::function<void()> expired)
{
    if (m_noticeTimer) {
        m_services.scheduler->cancel(*m_noticeTimer);
    }
    const std::shared_ptr<PreviewPanelState> state = m_panelState;
    state->setNotice(notice, action);
    m_noticeAct = std::move(act);
    const QPointer<PreviewPanelController> self(this);
    m_noticeTimer =
        m_services.scheduler->schedule(noticeInterval, [self, state, expired = std::move(expired)] {
            if (expired) {
                expired();
            }
            state->setNotice({});
            if (self) {
                self->m_noticeTimer.reset();
                if (self->m_panelState == state) {
                    self->m_noticeAct = nullptr;
                }
            }
        });
}

void PreviewPanelController::showFeedback(const QString& message)
{
    if (!m_panel) {
        return;
    }
    if (m_feedback) {
        m_feedback->close(); // two messages at one spot would be drawn over each other
    }
    m_feedback = new FeedbackMessageWindow(message, m_services.compositing());
    m_feedback->showCentredOn(m_panel->frameGeometry().center());
}

} // namespace vantalo
