#pragma once

#include <QHash>
#include <QList>
#include <QTcpServer>
#include <QTcpSocket>

#include <functional>
#include <optional>

namespace vantalo::test {

// A real HTTP/1.1 server on loopback that answers each request as the test says (or never, to
// stall), one request per connection.
class HttpFixture : public QObject
{
public:
    struct Request
    {
        QByteArray method;
        QByteArray target;
        QList<std::pair<QByteArray, QByteArray>> headers;
        QByteArray body;
        QByteArray header(const QByteArray& name) const
        {
            for (const auto& [key, value] : headers) {
                if (key.compare(name, Qt::CaseInsensitive) == 0) {
                    return value;
                }
            }
            return {};
        }
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
        m_server.listen(QHostAddress::LocalHost);
        connect(&m_server, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket* socket = m_server.nextPendingConnection()) {
                socket->setParent(this);
                connect(socket, &QTcpSocket::readyRead, this, [this, socket] { read(socket); });
            }
        });
    }
    QString url(const QString& path = QStringLiteral("/")) const
    {
        return QStringLiteral("http://127.0.0.1:%1%2").arg(m_server.serverPort()).arg(path);
    }

private:
    void read(QTcpSocket* socket)
    {
        QByteArray& buffer = m_buffers[socket];
        buffer += socket->readAll();
        const qsizetype end = buffer.indexOf("\r\n\r\n");
        if (end < 0) {
            return;
        }
        Request request;
        const QList<QByteArray> lines = buffer.left(end).split('\n');
        const QList<QByteArray> first = lines.first().trimmed().split(' ');
        request.method = first.value(0);
        request.target = first.value(1);
        qsizetype length = 0;
        for (qsizetype i = 1; i < lines.size(); ++i) {
            const qsizetype colon = lines[i].indexOf(':');
            const QByteArray name = lines[i].left(colon).trimmed();
            const QByteArray value = lines[i].mid(colon + 1).trimmed();
            request.headers.append({name, value});
            if (name.compare("Content-Length", Qt::CaseInsensitive) == 0) {
                length = value.toLongLong();
            }
        }
        if (buffer.size() < end + 4 + length) {
            return;
        }
        request.body = buffer.mid(end + 4, length);
        m_buffers.remove(socket);
        requests.append(request);
        const std::optional<Response> response = handler ? handler(request) : Response{};
        if (!response) {
            return;
        }
        socket->write("HTTP/1.1 " + QByteArray::number(response->status) +
                      " Answer\r\nContent-Length: " + QByteArray::number(response->body.size()) +
                      "\r\nContent-Type: application/json\r\nConnection: close\r\n\r\n" + response->body);
        socket->disconnectFromHost();
    }

    QTcpServer m_server;
    QHash<QTcpSocket*, QByteArray> m_buffers;
};

} // namespace vantalo::test
