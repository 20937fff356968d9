// Uploads against loopback servers that answer as each case says, and S3 signatures against an
// independent signer (botocore, from Debian's python3-botocore).
#include "../fakes/HttpFixture.h"
#include "sharing/CloudUploader.h"
#include "sharing/HostedUploader.h"
#include "sharing/S3Request.h"

#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <ctime>

using namespace vantalo;
using namespace vantalo::test;
using namespace std::chrono_literals;

namespace {

struct Awaited
{
    UploadOutcome outcome = std::unexpected(Failure{QStringLiteral("no answer")});
    qint64 progressTotal = -1;
};

Awaited await(Uploader& uploader, const QByteArray& data,
              const QString& filename = QStringLiteral("clip.gif"))
{
    Awaited result;
    QEventLoop loop;
    bool finished = false;
    uploader.upload(
        data, filename, [&result](qint64, qint64 total) { result.progressTotal = total; },
        [&](const UploadOutcome& outcome) {
            result.outcome = outcome;
            finished = true;
            loop.quit();
        });
    if (!finished) {
        QTimer::singleShot(20s, &loop, &QEventLoop::quit);
        loop.exec();
    }
    return result;
}

QString errorOf(const Awaited& awaited)
{
    return awaited.outcome ? QStringLiteral("(succeeded)") : awaited.outcome.error().description;
}

CloudUploader::Config s3Config(const QString& endpoint = {})
{
    return {QStringLiteral("vantalo-test"),
            QStringLiteral("us-east-1"),
            QStringLiteral("cdn.example.com"),
            QStringLiteral("AKIDEXAMPLE"),
            QStringLiteral("wJalrXUtnFEMI/K7MDENG+bPxRfiCYEXAMPLEKEY"),
            endpoint};
}

QByteArray botocore(const S3SignedRequest& request, const CloudUploader::Config& config,
                    const QByteArray& data)
{
    QTemporaryDir dir;
    QFile file(dir.filePath(QStringLiteral("body")));
    file.open(QIODevice::WriteOnly);
    file.write(data);
    file.close();
    QProcess python;
    python.start(QStringLiteral("/usr/bin/python3"),
                 {QStringLiteral(QT_TESTCASE_SOURCEDIR "/sharing/sigv4_reference.py"),
                  QString::fromUtf8(request.url.toEncoded()), config.accessKeyId, config.secretAccessKey,
                  config.region, QString::fromLatin1(header(request.headers, "x-amz-date")),
                  file.fileName()});
    python.waitForFinished(30000);
    const QByteArray errors = python.readAllStandardError();
    if (!errors.isEmpty()) {
        qWarning("%s", errors.constData());
    }
    return python.readAllStandardOutput().trimmed();
}

} // namespace

class UploadersTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // Storing the object on a real S3-compatible server that checks the signature, and the link
    // that comes back: the end-to-end flows (tests/e2e/flow.py --upload).
    void s3StatusDecidesTheOutcome()
    {
        for (const auto& [status, error] :
             {std::pair(299, QString()), std::pair(199, QStringLiteral("Upload failed: HTTP 199")),
              std::pair(300, QStringLiteral("Upload failed: HTTP 300"))}) {
            HttpFixture server;
            server.handler = [status](const HttpFixture::Request&) {
                return HttpFixture::Response{status, {}};
            };
            CloudUploader uploader(s3Config(server.url()));
            const Awaited awaited = await(uploader, "GIF89a");
            QCOMPARE(awaited.outcome ? QString() : errorOf(awaited), error);
            QCOMPARE(awaited.progressTotal, 6);
            QCOMPARE(server.requests.size(), 1);
            QCOMPARE(server.requests.first().target, QByteArray("/vantalo-test/gifs/clip.gif"));
        }

        // Built from the settings as they are at each upload: a bucket changed in Preferences is
        // the next upload's, without a restart.
        {
            HttpFixture server;
            server.handler = [](const HttpFixture::Request&) { return HttpFixture::Response{200, {}}; };
            CloudUploader::Config config = s3Config(server.url());
            CloudUploader uploader([&config] { return config; });
            QVERIFY(await(uploader, "GIF89a").outcome);
            config.bucketName = QStringLiteral("renamed");
            QVERIFY(await(uploader, "GIF89a").outcome);
            QCOMPARE(server.requests.size(), 2);
            QCOMPARE(server.requests.last().target, QByteArray("/renamed/gifs/clip.gif"));
        }

        // The hosted service's address: the first source that has one.
        using Text = std::optional<QString>;
        const Text none;
        const Text a = QStringLiteral("https://a.example/init");
        const Text b = QStringLiteral("https://b.example/init");
        const struct
        {
            Text explicitEndpoint, buildTime, environment;
            QString expected;
        } endpoints[] = {
            {none, a, b, *a},
            {none, none, b, *b},
            {b, a, none, *b},
            {none, Text(QString()), b, QString()}, // an empty one at build time stops the search
            {none, none, none, QString()},
            {none, Text(QStringLiteral("http://[::1")), none, QString()},
        };
        for (const auto& row : endpoints) {
            const auto endpoint =
                HostedUploader::resolveEndpoint(row.explicitEndpoint, row.buildTime, row.environment);
            QCOMPARE(endpoint ? endpoint->toString() : QString(), row.expected);
        }
    }

    // The hosted service is asked for a place, the GIF is put there and the service's link comes
    // back; every answer that is not a link says what went wrong, and a service or storage that
    // never answers ends at its own time limit.
    void hostedUploadAsksThenPuts()
    {
        const QByteArray good = "{\"upload_url\":\"UPLOAD\",\"cdn_url\":\"https://cdn.example.com/a.gif\"}";
        const struct
        {
            int initStatus; // 0: never answers
            QByteArray initBody;
            int putStatus; // 0: no PUT may be made; -1: never answers
            QString error; // *…*: a part of it; empty: the link comes back
        } rows[] = {
            {200,
             "{\"upload_url\":\"UPLOAD?X-Amz-Signature=abc\",\"cdn_url\":\"https://cdn.example.com/a.gif\","
             "\"extra\":1}",
             204,
             {}},
            {201, good, 0, QStringLiteral("Upload failed: Server returned HTTP 201")},
            {403, "{\"error\":\"Daily limit reached\"}", 0,
             QStringLiteral("Upload failed: Daily limit reached")},
            {403, {}, 0, QStringLiteral("Upload failed: Server returned HTTP 403")},
            {200, "{\"upload_url\":\"\",\"cdn_url\":\"https://c/a.gif\"}", 0,
             QStringLiteral("Upload failed: Server returned an invalid upload URL")},
            {200, "{\"upload_url\":\"file:///tmp/vantalo-pwned\",\"cdn_url\":\"https://c/a.gif\"}", 0,
             QStringLiteral("Upload failed: Server returned an invalid upload URL")},
            {200, "{\"upload_url\":\"UPLOAD\",\"cdn_url\":\"ftp://c/a.gif\"}", 0,
             QStringLiteral("Upload failed: Server returned an invalid CDN URL")},
            {200, "{\"upload_url\":\"UPLOAD\",\"cdn_url\":\"http://[::1\"}", 0,
             QStringLiteral("Upload failed: Server returned an invalid CDN URL")},
            {200, "{\"upload_url\":\"UPLOAD\",\"cdn_url\":\"\"}", 0,
             QStringLiteral("Upload failed: Server returned an invalid CDN URL")},
            {200, good, 403, QStringLiteral("Upload failed: S3 upload failed with HTTP 403")},
            {200, "<html>", 0, QStringLiteral("*not valid JSON*")},
            {200, "{\"upload_url\":\"UPLOAD\"}", 0, QStringLiteral("*\"cdn_url\"*")},
            {0, {}, 0, QStringLiteral("*canceled*")},
            {200, good, -1, QStringLiteral("*canceled*")},
        };
        for (const auto& row : rows) {
            HttpFixture service;
            HttpFixture storage;
            const QByteArray body =
                QByteArray(row.initBody).replace("UPLOAD", storage.url(QStringLiteral("/put")).toUtf8());
            service.handler = [&](const HttpFixture::Request&) -> std::optional<HttpFixture::Response> {
                return row.initStatus ? std::optional(HttpFixture::Response{row.initStatus, body})
                                      : std::nullopt;
            };
            storage.handler = [&](const HttpFixture::Request&) -> std::optional<HttpFixture::Response> {
                return row.putStatus > 0 ? std::optional(HttpFixture::Response{row.putStatus, {}})
                                         : std::nullopt;
            };
            HostedUploader uploader(QUrl(service.url(QStringLiteral("/v1/init"))),
                                    HostedUploader::Timeouts{300ms, 300ms});
            const Awaited awaited = await(uploader, "GIF89a");
            const QString got = errorOf(awaited);
            if (row.error.isEmpty()) {
                QVERIFY2(awaited.outcome, qPrintable(got));
                QCOMPARE(awaited.outcome->url, QUrl(QStringLiteral("https://cdn.example.com/a.gif")));
                QCOMPARE(awaited.outcome->size, 6);
                const HttpFixture::Request& init = service.requests.first();
                QCOMPARE(init.method + ' ' + init.target, QByteArray("POST /v1/init"));
                QCOMPARE(init.header("Content-Type"), QByteArray("application/json"));
                QCOMPARE(init.body, QByteArray("{\"content_type\":\"image/gif\",\"size\":6}"));
                QVERIFY(init.header("Authorization").isEmpty());
                const HttpFixture::Request& put = storage.requests.first();
                QCOMPARE(put.method + ' ' + put.target, QByteArray("PUT /put?X-Amz-Signature=abc"));
                QCOMPARE(put.header("Content-Type"), QByteArray("image/gif"));
                QCOMPARE(put.header("Content-Length"), QByteArray("6"));
                QCOMPARE(put.body, QByteArray("GIF89a"));
            } else if (row.error.startsWith('*')) {
                QVERIFY2(got.contains(row.error.mid(1, row.error.size() - 2)), qPrintable(got));
            } else {
                QCOMPARE(got, row.error);
            }
            QCOMPARE(storage.requests.size(), row.putStatus == 0 ? 0 : 1);
            QVERIFY(!QFile::exists(QStringLiteral("/tmp/vantalo-pwned")));
        }
    }

    void signaturesMatchAnIndependentSigner()
    {
        // Eight hours west of Greenwich, where 23:30 on the last day of January is February in UTC.
        qputenv("TZ", "America/Los_Angeles");
        tzset();
        const auto restore = qScopeGuard([] {
            qunsetenv("TZ");
            tzset();
        });
        const QDateTime may = QDateTime::fromString(QStringLiteral("2024-05-01T09:30:12Z"), Qt::ISODate);
        const QDateTime evening(QDate(2024, 1, 31), QTime(23, 30, 0), Qt::LocalTime);
        const QString host = QStringLiteral("https://vantalo-test.s3.us-east-1.amazonaws.com/gifs/");
        const struct
        {
            QString endpoint, filename;
            QByteArray data;
            QString url;
            QDateTime at;
            QByteArray amzDate;
        } rows[] = {
            {{},
             QStringLiteral("vantalo_6B1F0C2A-9D4E-4A7B-8C3D-2E5F7A9B1C0D.gif"),
             "GIF89a data",
             host + QStringLiteral("vantalo_6B1F0C2A-9D4E-4A7B-8C3D-2E5F7A9B1C0D.gif"),
             may,
             "20240501T093012Z"},
            {{}, QStringLiteral("a.gif"), {}, host + QStringLiteral("a.gif"), evening, "20240201T073000Z"},
            {{},
             QStringLiteral("my gif+1 \u00e9t\u00e9.gif"),
             "x",
             host + QStringLiteral("my%20gif%2B1%20%C3%A9t%C3%A9.gif"),
             may,
             "20240501T093012Z"},
            // Path-style where an endpoint is set.
            {QStringLiteral("http://127.0.0.1:9000"), QStringLiteral("b.gif"), "GIF",
             QStringLiteral("http://127.0.0.1:9000/vantalo-test/gifs/b.gif"), may, "20240501T093012Z"},
            {QStringLiteral("https://storage.example.net/"), QStringLiteral("c.gif"), "GIF",
             QStringLiteral("https://storage.example.net/vantalo-test/gifs/c.gif"), may, "20240501T093012Z"},
        };
        for (const auto& [endpoint, filename, data, url, at, amzDate] : rows) {
            const auto request = buildS3Request(s3Config(), endpoint, filename, data, at);
            QVERIFY(request);
            QCOMPARE(QString::fromUtf8(request->url.toEncoded()), url);
            QCOMPARE(header(request->headers, "x-amz-date"), amzDate);
            QCOMPARE(request->payloadHash,
                     QCryptographicHash::hash(data, QCryptographicHash::Sha256).toHex());
            QList<QByteArray> order;
            for (const auto& entry : request->headers) {
                order << entry.first;
            }
            QCOMPARE(order, (QList<QByteArray>{"Content-Type", "Host", "x-amz-date", "x-amz-content-sha256",
                                               "Authorization"}));
            QCOMPARE(header(request->headers, "Authorization"), botocore(*request, s3Config(), data));
            // The link is on the CDN host, with the object key as its path.
            QCOMPARE(QString::fromUtf8(request->publicUrl.toEncoded()),
                     QStringLiteral("https://cdn.example.com/gifs/") +
                         url.section(QStringLiteral("/gifs/"), 1));
        }
    }

    // Without a key pair nothing is signed; plain http only to this computer, other schemes never.
    void refusals()
    {
        CloudUploader::Config noSecret = s3Config();
        noSecret.secretAccessKey.clear();
        CloudUploader::Config noKey = s3Config();
        noKey.accessKeyId.clear();
        const QString unset =
            QStringLiteral("Cloud upload not configured \u2014 add your AWS credentials in Preferences");
        const QString https = QStringLiteral(
            "Upload failed: the S3 endpoint must be an https URL (http only on this computer)");
        const std::tuple<CloudUploader::Config, const char*, QString> rows[] = {
            {noSecret, "", unset},
            {noKey, "", unset},
            {s3Config(), "http://storage.example.net", https},
            {s3Config(), "ftp://127.0.0.1", https},
            {s3Config(), "file:///tmp/x", https},
            {s3Config(), "http://10.0.0.5:9000", https},
            {s3Config(), "http://localhost:9000", {}},
            {s3Config(), "http://[::1]:9000", {}},
        };
        for (const auto& [config, endpoint, error] : rows) {
            const auto request =
                buildS3Request(config, QString::fromLatin1(endpoint), QStringLiteral("a.gif"), "x",
                               QDateTime::currentDateTimeUtc());
            QCOMPARE(request ? QString() : request.error().description, error);
        }
    }
};

QTEST_GUILESS_MAIN(UploadersTest)
#include "tst_uploaders.moc"
