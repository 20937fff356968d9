#include "HttpTransfer.h"

#include <QNetworkReply>
#include <QNetworkRequest>

namespace vantalo {

bool isWebUrl(const QUrl& url)
{
    const QString scheme = url.scheme().toLower();
    return url.isValid() && !url.host().isEmpty() &&
           (scheme == QLatin1String("http") || scheme == QLatin1String("https"));
}

HttpClient::HttpClient()
    : m_alive(std::make_shared<bool>(true)), m_network(std::make_unique<QNetworkAccessManager>())
{
}

HttpClient::~HttpClient()
{
    *m_alive = false;
}

void HttpClient::send(const HttpRequest& request, const Uploader::Progress& progress,
                      std::function<void(const HttpOutcome&)> done)
{
    if (!isWebUrl(request.url)) {
        done(std::unexpected(Failure{QStringLiteral("Not an http or https URL")}));
        return;
    }
    QNetworkRequest networkRequest(request.url);
    networkRequest.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                                QNetworkRequest::ManualRedirectPolicy);
    networkRequest.setTransferTimeout(int(request.idleTimeout.count()));
    for (const auto& [name, value] : request.headers) {
        networkRequest.setRawHeader(name, value);
    }
    QNetworkReply* reply = m_network->sendCustomRequest(networkRequest, request.method, request.body);
    if (progress) {
        // Qt closes an upload with a (0, 0) report; only reports with a known size mean anything.
        QObject::connect(reply, &QNetworkReply::uploadProgress, reply, [progress](qint64 sent, qint64 total) {
            if (total > 0) {
                progress(sent, total);
            }
        });
    }
    QObject::connect(reply, &QNetworkReply::finished, reply,
                     [reply, alive = m_alive, url = request.url, done = std::move(done)] {
                         reply->deleteLater();
                         if (!*alive) {
                             return;
                         }
                         const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
                         if (status.isValid()) {
                             done(HttpAnswer{status.toInt(), reply->readAll()});
                         } else if (reply->error() != QNetworkReply::NoError) {
                             // A pre-signed URL carries its signature in the query: keep it out of every
                             // message.
                             QString message = reply->errorString();
                             const QString bare = url.toString(QUrl::RemoveQuery | QUrl::RemoveUserInfo);
                             for (const QString& spelled : {url.toString(), url.toDisplayString(),
                                                            QString::fromUtf8(url.toEncoded())}) {
                                 message.replace(spelled, bare);
                             }
                             done(std::unexpected(Failure{message}));
                         } else {
                             done(HttpAnswer{-1, reply->readAll()});
                         }
                     });
}

} // namespace vantalo
