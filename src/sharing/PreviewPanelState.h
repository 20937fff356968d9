#pragma once

#include <QObject>
#include <QString>
#include <QUrl>

#include <optional>

namespace vantalo {

// What the action row of one preview panel shows. An upload keeps the state of the panel it was
// started from, also after that panel is gone. A fit or a save of the panel's GIF shows its own
// progress (with Cancel) in place of the actions, and a notice (what it could not do) stands there
// for a while after.
class PreviewPanelState : public QObject
{
    Q_OBJECT
public:
    enum class Row
    {
        ready,
        uploading,
        uploaded,
        working,
        notice,
    };

    bool isUploading() const { return m_uploading; }
    const std::optional<QUrl>& uploadedURL() const { return m_uploadedURL; }
    const QString& work() const { return m_work; }
    double workProgress() const { return m_workProgress; }
    const QString& notice() const { return m_notice; }
    // The button beside the notice ("Undo"), or nothing.
    const QString& noticeAction() const { return m_noticeAction; }
    Row row() const
    {
        if (m_uploading) {
            return Row::uploading;
        }
        if (!m_work.isEmpty()) {
            return Row::working;
        }
        if (!m_notice.isEmpty()) {
            return Row::notice;
        }
        return m_uploadedURL ? Row::uploaded : Row::ready;
    }
    // The running upload's share done, 0–100, once its size is known.
    std::optional<int> progressPercent() const
    {
        if (!m_uploading || m_bytesTotal <= 0) {
            return std::nullopt;
        }
        return int(std::clamp<qint64>(m_bytesSent * 100 / m_bytesTotal, 0, 100));
    }

    void setUploading(bool uploading)
    {
        m_uploading = uploading;
        m_bytesSent = 0;
        m_bytesTotal = 0;
        Q_EMIT changed();
    }
    void setUploadedURL(const QUrl& url)
    {
        m_uploadedURL = url;
        Q_EMIT changed();
    }
    void setProgress(qint64 sent, qint64 total)
    {
        m_bytesSent = sent;
        m_bytesTotal = total;
        Q_EMIT changed();
    }

    // What runs ("Fitting under 10 MB"), or nothing.
    void setWork(const QString& title)
    {
        m_work = title;
        m_workProgress = 0.0;
        Q_EMIT changed();
    }
    void setWorkProgress(double fraction)
    {
        m_workProgress = fraction;
        Q_EMIT changed();
    }
    void setNotice(const QString& notice, const QString& action = {})
    {
        m_notice = notice;
        m_noticeAction = notice.isEmpty() ? QString() : action;
        Q_EMIT changed();
    }

Q_SIGNALS:
    void changed();

private:
    bool m_uploading = false;
    std::optional<QUrl> m_uploadedURL;
    qint64 m_bytesSent = 0;
    qint64 m_bytesTotal = 0;
    QString m_work;
    double m_workProgress = 0.0;
    QString m_notice;
    QString m_noticeAction;
};

} // namespace vantalo
