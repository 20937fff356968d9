#pragma once

#include <QHttpServer>
#include <QHttpServerRequest>
#include <QHttpServerResponder>
#include <QMetaEnum>

#include <functional>
#include <list>
#include <optional>

namespace vantalo::test {

using Headers = QList<std::pair<QByteArray, QByteArray>>;

// The value of the header `name` (in any case), or empty.
inline QByteArray header(const Headers& headers, const QByteArray& name)
{
    for (const auto& [key, value] : headers) {
        if (key.compare(name, Qt::CaseInsensitive) == 0) {
            return value;
        }
    }
    return {};
}

// A real HTTP/1.1 server on loopback that answers each request as the test says (or never, to
// stall).
class HttpFixture
{
public:
    struct Request
    {
        QByteArray method;
        QByteArray target;
        Headers headers;
        QByteArray body;
        QByteArray header(const QByteArray& name) const { return test::header(headers, name); }
    };
    struct Response
    {
        int status = 200;
        QByteArray body;
    };
    // nullopt: read the request and never answer.
    std::function<std::optional<Response>(const Request&)> handler;
    QList<Request> requests;

    HttpFixture()
    {
        m_port = m_server.listen(QHostAddress::LocalHost);
        m_server.setMissingHandler([this](const QHttpServerRequest& r, QHttpServerResponder&& responder) {
            const char* method =
                QMetaEnum::fromType<QHttpServerRequest::Method>().valueToKey(int(r.method()));
            requests.append({QByteArray(method).toUpper(),
                             r.url().toEncoded(QUrl::RemoveScheme | QUrl::RemoveAuthority), r.headers(),
                             r.body()});
            const std::optional<Response> response = handler ? handler(requests.last()) : Response{};
            if (!response) {
                m_stalled.push_back(std::move(responder));
                return;
            }
            responder.write(response->body, "application/json",
                            QHttpServerResponder::StatusCode(response->status));
        });
    }
    QString url(const QString& path = QStringLiteral("/")) const
    {
        return QStringLiteral("http://127.0.0.1:%1%2").arg(m_port).arg(path);
    }

private:
    QHttpServer m_server;
    quint16 m_port = 0;
    std::list<QHttpServerResponder> m_stalled;
};

} // namespace vantalo::test
