#pragma once

#include <QObject>
#include <QUrl>

#include <optional>

namespace vantalo {

// What the action row of one preview panel shows. An upload keeps the state of the panel it was
// started from, also after that panel is gone.
class PreviewPanelState : public QObject
{
    Q_OBJECT
public:
    enum class Row
    {
        ready,
        uploading,
        uploaded,
    };

    bool isUploading() const { return m_uploading; }
    const std::optional<QUrl>& uploadedURL() const { return m_uploadedURL; }
    Row row() const { return m_uploading ? Row::uploading : (m_uploadedURL ? Row::uploaded : Row::ready); }
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

Q_SIGNALS:
    void changed();

private:
    bool m_uploading = false;
    std::optional<QUrl> m_uploadedURL;
    qint64 m_bytesSent = 0;
    qint64 m_bytesTotal = 0;
};

} // namespace vantalo
