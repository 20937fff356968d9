#pragma once

#include "Uploader.h"

#include <QByteArray>
#include <QList>
#include <QNetworkAccessManager>
#include <QUrl>

#include <chrono>
#include <expected>
#include <functional>
#include <memory>
#include <utility>

namespace vantalo {

// What came back from one request: the HTTP status (-1 when the answer was not HTTP) and the body.
struct HttpAnswer
{
    int status = -1;
    QByteArray body;
};

// A transfer that failed before an HTTP status arrived (no connection, time-out) carries the
// client's own description.
using HttpOutcome = std::expected<HttpAnswer, Failure>;

struct HttpRequest
{
    QByteArray method;
    QUrl url;
    QList<std::pair<QByteArray, QByteArray>> headers; // in the order they are set
    QByteArray body;
    // Time without any bytes moving after which the transfer is given up.
    std::chrono::milliseconds idleTimeout{60000};
};

// Only http and https ever go to the network access manager, which would otherwise happily PUT
// to a file: URL by writing the local file.
bool isWebUrl(const QUrl& url);

// Sends requests for one owner. `done` runs once per request, on this thread, unless the client is
// destroyed first: then what is in flight is abandoned without a call. Redirects are not followed:
// a signed or pre-signed PUT would not survive one, and the 3xx status is the more useful answer.
class HttpClient
{
public:
    HttpClient();
    ~HttpClient();
    HttpClient(const HttpClient&) = delete;
    HttpClient& operator=(const HttpClient&) = delete;

    void send(const HttpRequest& request, const Uploader::Progress& progress,
              std::function<void(const HttpOutcome&)> done);

private:
    std::shared_ptr<bool> m_alive;
    std::unique_ptr<QNetworkAccessManager> m_network;
};

} // namespace vantalo
