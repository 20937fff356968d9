#include "S3Request.h"

#include <QCryptographicHash>
#include <QHostAddress>
#include <QMessageAuthenticationCode>

namespace vantalo {

namespace {

QByteArray hmac(const QByteArray& key, const QByteArray& data)
{
    return QMessageAuthenticationCode::hash(data, key, QCryptographicHash::Sha256);
}

QByteArray sha256Hex(const QByteArray& data)
{
    return QCryptographicHash::hash(data, QCryptographicHash::Sha256).toHex();
}

bool isLoopback(const QString& host)
{
    if (host.compare(QLatin1String("localhost"), Qt::CaseInsensitive) == 0) {
        return true;
    }
    const QHostAddress address(host);
    return !address.isNull() && address.isLoopback();
}

} // namespace

std::optional<QString> s3EndpointProblem(const QString& endpoint)
{
    if (endpoint.isEmpty()) {
        return std::nullopt;
    }
    const QUrl base(endpoint, QUrl::StrictMode);
    const bool https = base.scheme() == QLatin1String("https");
    const bool loopbackHttp = base.scheme() == QLatin1String("http") && isLoopback(base.host());
    if (!base.isValid() || base.host().isEmpty() || (!https && !loopbackHttp)) {
        return QStringLiteral("the S3 endpoint must be an https URL (http only on this computer)");
    }
    return std::nullopt;
}

Failure cloudUploaderFailure(CloudUploaderError error, const QString& detail)
{
    switch (error) {
    case CloudUploaderError::notConfigured:
        return Failure{
            QStringLiteral("Cloud upload not configured \u2014 add your AWS credentials in Preferences"),
            true};
    case CloudUploaderError::uploadFailed:
        return Failure{QStringLiteral("Upload failed: ") + detail};
    }
    return {};
}

QByteArray encodePathSegment(const QString& text)
{
    QByteArray out;
    for (const char byte : text.toUtf8()) {
        const auto c = static_cast<unsigned char>(byte);
        if ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' ||
            c == '_' || c == '.') {
            out.append(char(c));
        } else {
            out.append('%');
            out.append(QByteArray::number(c, 16).rightJustified(2, '0').toUpper());
        }
    }
    return out;
}

std::expected<S3SignedRequest, Failure> buildS3Request(const CloudUploader::Config& config,
                                                       const QString& endpoint, const QString& filename,
                                                       const QByteArray& data, const QDateTime& now)
{
    if (config.accessKeyId.isEmpty() || config.secretAccessKey.isEmpty()) {
        return std::unexpected(cloudUploaderFailure(CloudUploaderError::notConfigured));
    }
    const QByteArray key = "gifs/" + encodePathSegment(filename);

    QByteArray host;
    QByteArray path;
    QUrl url;
    if (endpoint.isEmpty()) {
        host = (config.bucketName + QStringLiteral(".s3.") + config.region + QStringLiteral(".amazonaws.com"))
                   .toUtf8();
        path = "/" + key;
        url = QUrl::fromEncoded("https://" + host + path, QUrl::StrictMode);
    } else {
        if (const auto problem = s3EndpointProblem(endpoint)) {
            Failure failure = cloudUploaderFailure(CloudUploaderError::uploadFailed, *problem);
            failure.mendedInUploadSettings = true;
            return std::unexpected(failure);
        }
        const QUrl base(endpoint, QUrl::StrictMode);
        // Path-style: the bucket is the first path segment, the endpoint's host (and port) the Host.
        host = base.host(QUrl::FullyEncoded).toUtf8();
        if (host.contains(':')) {
            host = "[" + host + "]"; // an IPv6 address, as URLs and Host headers write it
        }
        if (base.port() != -1) {
            host += ":" + QByteArray::number(base.port());
        }
        QByteArray prefix = base.path(QUrl::FullyEncoded).toUtf8();
        while (prefix.endsWith('/')) {
            prefix.chop(1);
        }
        path = prefix + "/" + encodePathSegment(config.bucketName) + "/" + key;
        url = QUrl::fromEncoded(base.scheme().toUtf8() + "://" + host + path, QUrl::StrictMode);
    }
    if (!url.isValid() || url.host().isEmpty()) {
        return std::unexpected(
            cloudUploaderFailure(CloudUploaderError::uploadFailed, QStringLiteral("Invalid URL")));
    }

    S3SignedRequest request;
    request.url = url;
    const QByteArray amzDate = now.toUTC().toString(QStringLiteral("yyyyMMdd'T'HHmmss'Z'")).toLatin1();
    const QByteArray dateStamp = amzDate.left(8);
    request.payloadHash = sha256Hex(data);

    const QByteArray signedHeaders = "content-type;host;x-amz-content-sha256;x-amz-date";
    const QByteArray canonicalHeaders = "content-type:image/gif\nhost:" + host +
                                        "\nx-amz-content-sha256:" + request.payloadHash +
                                        "\nx-amz-date:" + amzDate + "\n";
    request.canonicalRequest =
        "PUT\n" + path + "\n\n" + canonicalHeaders + "\n" + signedHeaders + "\n" + request.payloadHash;
    const QByteArray scope = dateStamp + "/" + config.region.toUtf8() + "/s3/aws4_request";
    request.stringToSign =
        "AWS4-HMAC-SHA256\n" + amzDate + "\n" + scope + "\n" + sha256Hex(request.canonicalRequest);

    const QByteArray kDate = hmac("AWS4" + config.secretAccessKey.toUtf8(), dateStamp);
    const QByteArray kRegion = hmac(kDate, config.region.toUtf8());
    const QByteArray kService = hmac(kRegion, "s3");
    const QByteArray kSigning = hmac(kService, "aws4_request");
    request.signature = hmac(kSigning, request.stringToSign).toHex();

    request.headers = {
        {"Content-Type", "image/gif"},
        {"Host", host},
        {"x-amz-date", amzDate},
        {"x-amz-content-sha256", request.payloadHash},
        {"Authorization", "AWS4-HMAC-SHA256 Credential=" + config.accessKeyId.toUtf8() + "/" + scope +
                              ", SignedHeaders=" + signedHeaders + ", Signature=" + request.signature},
    };
    request.publicUrl =
        QUrl::fromEncoded("https://" + config.cdnDomain.toUtf8() + "/" + key, QUrl::StrictMode);
    return request;
}

} // namespace vantalo
