#include "HostedUploader.h"

#include "HttpTransfer.h"

#include <QJsonDocument>
#include <QJsonObject>

namespace vantalo {

namespace {

Failure hostedFailure(const QString& detail)
{
    return Failure{QStringLiteral("Upload failed: ") + detail};
}

std::optional<QString> buildTimeEndpoint()
{
#ifdef VANTALO_UPLOAD_URL
    return QStringLiteral(VANTALO_UPLOAD_URL);
#else
    return std::nullopt;
#endif
}

// A member that must be a string; the decoder's complaint otherwise.
std::expected<QString, Failure> stringMember(const QJsonObject& object, const QString& name)
{
    const QJsonValue value = object.value(name);
    if (value.isUndefined()) {
        return std::unexpected(Failure{QStringLiteral("The server's answer has no \"%1\"").arg(name)});
    }
    if (!value.isString()) {
        return std::unexpected(Failure{QStringLiteral("The server's \"%1\" is not a string").arg(name)});
    }
    return value.toString();
}

std::expected<QJsonObject, Failure> jsonObject(const QByteArray& body)
{
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(body, &error);
    if (error.error != QJsonParseError::NoError) {
        return std::unexpected(
            Failure{QStringLiteral("The server's answer is not valid JSON (%1)").arg(error.errorString())});
    }
    if (!document.isObject()) {
        return std::unexpected(Failure{QStringLiteral("The server's answer is not a JSON object")});
    }
    return document.object();
}

// The service's reason for refusing, when its answer is an ErrorResponse.
std::optional<QString> errorReason(const QByteArray& body)
{
    const auto object = jsonObject(body);
    if (!object) {
        return std::nullopt;
    }
    const auto reason = stringMember(*object, QStringLiteral("error"));
    return reason ? std::optional(*reason) : std::nullopt;
}

} // namespace

std::optional<QUrl> HostedUploader::resolveEndpoint(const std::optional<QString>& explicitEndpoint,
                                                    const std::optional<QString>& buildTimeValue,
                                                    const std::optional<QString>& environmentValue)
{
    const std::optional<QString> candidate =
        explicitEndpoint ? explicitEndpoint : (buildTimeValue ? buildTimeValue : environmentValue);
    if (!candidate || candidate->isEmpty()) {
        return std::nullopt;
    }
    const QUrl url(*candidate, QUrl::StrictMode);
    if (!url.isValid()) {
        return std::nullopt;
    }
    return url;
}

std::unique_ptr<HostedUploader> HostedUploader::create(const std::optional<QString>& explicitEndpoint)
{
    const std::optional<QString> environment = qEnvironmentVariableIsSet(endpointVariable)
                                                   ? std::optional(qEnvironmentVariable(endpointVariable))
                                                   : std::nullopt;
    const std::optional<QUrl> endpoint = resolveEndpoint(explicitEndpoint, buildTimeEndpoint(), environment);
    if (!endpoint) {
        return nullptr;
    }
    return std::make_unique<HostedUploader>(*endpoint);
}

HostedUploader::HostedUploader(QUrl endpointURL) : HostedUploader(std::move(endpointURL), Timeouts{}) {}

HostedUploader::HostedUploader(QUrl endpointURL, Timeouts timeouts)
    : m_endpointURL(std::move(endpointURL)), m_timeouts(timeouts), m_http(std::make_unique<HttpClient>())
{
}

HostedUploader::~HostedUploader() = default;

std::expected<HostedUploader::Targets, Failure> HostedUploader::readInitAnswer(int status,
                                                                               const QByteArray& body)
{
    if (status != 200) {
        return std::unexpected(hostedFailure(
            errorReason(body).value_or(QStringLiteral("Server returned HTTP ") + QString::number(status))));
    }
    const auto object = jsonObject(body);
    if (!object) {
        return std::unexpected(object.error());
    }
    const auto uploadText = stringMember(*object, QStringLiteral("upload_url"));
    const auto cdnText = stringMember(*object, QStringLiteral("cdn_url"));
    if (!uploadText || !cdnText) {
        return std::unexpected(!uploadText ? uploadText.error() : cdnText.error());
    }
    const QUrl uploadURL(*uploadText, QUrl::StrictMode);
    if (uploadText->isEmpty() || !isWebUrl(uploadURL)) {
        return std::unexpected(hostedFailure(QStringLiteral("Server returned an invalid upload URL")));
    }
    // A link that is empty, unusable or in another scheme (file:, javascript:...) must never reach
    // the clipboard; refuse it before the GIF is sent.
    const QUrl cdnURL(*cdnText, QUrl::StrictMode);
    if (cdnText->isEmpty() || !isWebUrl(cdnURL)) {
        return std::unexpected(hostedFailure(QStringLiteral("Server returned an invalid CDN URL")));
    }
    return Targets{uploadURL, cdnURL};
}

QByteArray HostedUploader::initRequestBody(qint64 size)
{
    // Written by hand to keep the member order (QJsonObject sorts its keys).
    return "{\"content_type\":\"image/gif\",\"size\":" + QByteArray::number(size) + "}";
}

void HostedUploader::upload(const QByteArray& data, const QString&, Progress progress, Completion done)
{
    const HttpRequest init{"POST",
                           m_endpointURL,
                           {{"Content-Type", "application/json"}},
                           initRequestBody(data.size()),
                           m_timeouts.initialization};
    m_http->send(
        init, {},
        [this, data, progress = std::move(progress), done = std::move(done)](const HttpOutcome& answer) {
            if (!answer) {
                done(std::unexpected(answer.error()));
                return;
            }
            if (answer->status == -1) {
                done(std::unexpected(hostedFailure(QStringLiteral("No HTTP response from server"))));
                return;
            }
            const auto targets = readInitAnswer(answer->status, answer->body);
            if (!targets) {
                done(std::unexpected(targets.error()));
                return;
            }
            const HttpRequest put{
                "PUT",
                targets->uploadURL,
                {{"Content-Type", "image/gif"}, {"Content-Length", QByteArray::number(data.size())}},
                data,
                m_timeouts.transfer};
            m_http->send(
                put, progress,
                [done, cdnURL = targets->cdnURL, size = data.size()](const HttpOutcome& stored) {
                    if (!stored) {
                        done(std::unexpected(stored.error()));
                        return;
                    }
                    if (stored->status < 200 || stored->status > 299) {
                        done(std::unexpected(hostedFailure(QStringLiteral("S3 upload failed with HTTP ") +
                                                           QString::number(stored->status))));
                        return;
                    }
                    done(UploadResult{cdnURL, size});
                });
        });
}

} // namespace vantalo
