// S3 signatures against an independent signer (botocore, from Debian's python3-botocore).
#include "sharing/S3Request.h"

#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <ctime>

using namespace vantalo;

namespace {

CloudUploader::Config config()
{
    return CloudUploader::Config{QStringLiteral("vantalo-test"),
                                 QStringLiteral("eu-west-3"),
                                 QStringLiteral("cdn.example.com"),
                                 QStringLiteral("AKIDEXAMPLE"),
                                 QStringLiteral("wJalrXUtnFEMI/K7MDENG+bPxRfiCYEXAMPLEKEY"),
                                 QString()};
}

QByteArray header(const S3SignedRequest& request, const QByteArray& name)
{
    for (const auto& [key, value] : request.headers) {
        if (key == name) {
            return value;
        }
    }
    return {};
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
                  config.region, QString::fromLatin1(header(request, "x-amz-date")), file.fileName()});
    python.waitForFinished(30000);
    const QByteArray errors = python.readAllStandardError();
    if (!errors.isEmpty()) {
        qWarning("%s", errors.constData());
    }
    return python.readAllStandardOutput().trimmed();
}

} // namespace

class TestS3Request : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void signaturesMatchAnIndependentSigner()
    {
        const QString host = QStringLiteral("https://vantalo-test.s3.eu-west-3.amazonaws.com/gifs/");
        const struct
        {
            QString endpoint, filename;
            QByteArray data;
            QString url;
        } rows[] = {
            {{},
             QStringLiteral("vantalo_6B1F0C2A-9D4E-4A7B-8C3D-2E5F7A9B1C0D.gif"),
             "GIF89a data",
             host + QStringLiteral("vantalo_6B1F0C2A-9D4E-4A7B-8C3D-2E5F7A9B1C0D.gif")},
            {{}, QStringLiteral("a.gif"), {}, host + QStringLiteral("a.gif")},
            {{},
             QStringLiteral("my gif+1 \u00e9t\u00e9.gif"),
             "x",
             host + QStringLiteral("my%20gif%2B1%20%C3%A9t%C3%A9.gif")},
            // Path-style where an endpoint is set.
            {QStringLiteral("http://127.0.0.1:9000"), QStringLiteral("b.gif"), "GIF",
             QStringLiteral("http://127.0.0.1:9000/vantalo-test/gifs/b.gif")},
            {QStringLiteral("https://storage.example.net/"), QStringLiteral("c.gif"), "GIF",
             QStringLiteral("https://storage.example.net/vantalo-test/gifs/c.gif")},
        };
        const QDateTime now = QDateTime::fromString(QStringLiteral("2024-05-01T09:30:12Z"), Qt::ISODate);
        for (const auto& [endpoint, filename, data, url] : rows) {
            const auto request = buildS3Request(config(), endpoint, filename, data, now);
            QVERIFY(request);
            QCOMPARE(QString::fromUtf8(request->url.toEncoded()), url);
            QCOMPARE(header(*request, "x-amz-date"), QByteArray("20240501T093012Z"));
            QCOMPARE(request->payloadHash,
                     QCryptographicHash::hash(data, QCryptographicHash::Sha256).toHex());
            QList<QByteArray> order;
            for (const auto& entry : request->headers) {
                order << entry.first;
            }
            QCOMPARE(order, (QList<QByteArray>{"Content-Type", "Host", "x-amz-date", "x-amz-content-sha256",
                                               "Authorization"}));
            QCOMPARE(header(*request, "Authorization"), botocore(*request, config(), data));
            // The link is on the CDN host, with the object key as its path.
            QCOMPARE(QString::fromUtf8(request->publicUrl.toEncoded()),
                     QStringLiteral("https://cdn.example.com/gifs/") +
                         url.section(QStringLiteral("/gifs/"), 1));
        }
    }

    void theDateIsTakenInUtc()
    {
        // 23:30 on the last day of January, eight hours west of Greenwich, is already February in UTC.
        qputenv("TZ", "America/Los_Angeles");
        tzset();
        const QDateTime local(QDate(2024, 1, 31), QTime(23, 30, 0), Qt::LocalTime);
        const auto request = buildS3Request(config(), {}, QStringLiteral("a.gif"), "x", local);
        qunsetenv("TZ");
        tzset();
        QVERIFY(request);
        QCOMPARE(header(*request, "x-amz-date"), QByteArray("20240201T073000Z"));
        QVERIFY(header(*request, "Authorization").contains("/20240201/eu-west-3/s3/aws4_request"));
        QCOMPARE(header(*request, "Authorization"), botocore(*request, config(), "x"));
    }

    void refusals()
    {
        const QDateTime now = QDateTime::currentDateTimeUtc();
        CloudUploader::Config noSecret = config();
        noSecret.secretAccessKey.clear();
        auto refused = buildS3Request(noSecret, {}, QStringLiteral("a.gif"), "x", now);
        QVERIFY(!refused);
        QCOMPARE(
            refused.error().description,
            QStringLiteral("Cloud upload not configured \u2014 add your AWS credentials in Preferences"));
        CloudUploader::Config noKey = config();
        noKey.accessKeyId.clear();
        QVERIFY(!buildS3Request(noKey, {}, QStringLiteral("a.gif"), "x", now));

        // Plain http only to this computer; other schemes never.
        for (const char* endpoint :
             {"http://storage.example.net", "ftp://127.0.0.1", "file:///tmp/x", "http://10.0.0.5:9000"}) {
            const auto bad =
                buildS3Request(config(), QString::fromLatin1(endpoint), QStringLiteral("a.gif"), "x", now);
            QVERIFY2(!bad, endpoint);
            QCOMPARE(bad.error().description,
                     QStringLiteral("Upload failed: ") +
                         s3EndpointProblem(QString::fromLatin1(endpoint)).value_or(""));
        }
        QVERIFY(buildS3Request(config(), QStringLiteral("http://localhost:9000"), QStringLiteral("a.gif"),
                               "x", now));
        QVERIFY(
            buildS3Request(config(), QStringLiteral("http://[::1]:9000"), QStringLiteral("a.gif"), "x", now));
    }
};

QTEST_GUILESS_MAIN(TestS3Request)
#include "tst_s3request.moc"
