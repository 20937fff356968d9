#pragma once

#include "CloudUploader.h"
#include "common/Failure.h"

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QUrl>

#include <expected>
#include <utility>

namespace vantalo {

enum class CloudUploaderError
{
    notConfigured,
    uploadFailed,
};

// "Cloud upload not configured — …" or "Upload failed: " + detail.
Failure cloudUploaderFailure(CloudUploaderError error, const QString& detail = {});

// One S3 PUT signed with AWS Signature Version 4: the URL, the headers in the order they are
// sent, and the intermediate texts (for tests and for nothing else).
struct S3SignedRequest
{
    QUrl url;
    QList<std::pair<QByteArray, QByteArray>> headers;
    QByteArray canonicalRequest;
    QByteArray stringToSign;
    QByteArray payloadHash;
    QByteArray signature;
    QUrl publicUrl; // the object on the CDN host
};

// File names go into the path with everything but letters, digits, "-", "_" and "." percent-encoded,
// the same in the URL and in the signature.
QByteArray encodePathSegment(const QString& text);

// Why an S3-compatible endpoint will be refused at upload, or nothing when it is usable (or
// empty): it must be https, or http on a loopback address.
std::optional<QString> s3EndpointProblem(const QString& endpoint);

// Builds and signs the request for "gifs/" + filename. Without an endpoint it goes virtual-hosted
// to <bucket>.s3.<region>.amazonaws.com over https; with one (S3-compatible storage) path-style to
// <endpoint>/<bucket>/gifs/<file>, which must be https, or http on a loopback address. `now` is
// the one clock reading of the upload.
std::expected<S3SignedRequest, Failure> buildS3Request(const CloudUploader::Config& config,
                                                       const QString& endpoint, const QString& filename,
                                                       const QByteArray& data, const QDateTime& now);

} // namespace vantalo
