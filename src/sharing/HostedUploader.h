#pragma once

#include "Uploader.h"

#include <QUrl>

#include <chrono>
#include <memory>
#include <optional>

namespace vantalo {

class HttpClient;

// Uploads through a service the deployment runs: a small JSON request asks it for a pre-signed
// upload URL and the public link, then the GIF is PUT to the upload URL.
class HostedUploader final : public Uploader
{
public:
    static inline const char* endpointVariable = "VANTALO_PROXY_URL";

    struct Timeouts
    {
        std::chrono::milliseconds initialization{15000};
        std::chrono::milliseconds transfer{120000};
    };

    // The endpoint to use: an explicit one, else the build-time value (even an empty one), else
    // the environment's. Absent when the candidate is missing, empty or not a URL.
    static std::optional<QUrl> resolveEndpoint(const std::optional<QString>& explicitEndpoint,
                                               const std::optional<QString>& buildTimeValue,
                                               const std::optional<QString>& environmentValue);
    // This build's and this process's sources; null when no hosted uploader exists.
    static std::unique_ptr<HostedUploader>
    create(const std::optional<QString>& explicitEndpoint = std::nullopt);

    // Where the answer to the initialization request says to PUT the GIF, and its public link.
    struct Targets
    {
        QUrl uploadURL;
        QUrl cdnURL;
    };
    // The answer read as the service's contract has it: HTTP 200 with both links usable (http or
    // https with a host), or the failure to report.
    static std::expected<Targets, Failure> readInitAnswer(int status, const QByteArray& body);

    explicit HostedUploader(QUrl endpointURL);
    HostedUploader(QUrl endpointURL, Timeouts timeouts);
    ~HostedUploader() override;

    const QUrl& endpointURL() const { return m_endpointURL; }

    // The body of the first request, compact, members in this order.
    static QByteArray initRequestBody(qint64 size);

    void upload(const QByteArray& data, const QString& filename, Progress progress, Completion done) override;

private:
    QUrl m_endpointURL;
    Timeouts m_timeouts;
    std::unique_ptr<HttpClient> m_http;
};

} // namespace vantalo
