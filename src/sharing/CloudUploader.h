#pragma once

#include "Uploader.h"

#include <QString>

#include <functional>
#include <memory>

class QObject;

namespace vantalo {

class UserDefaults;
class KeychainStore;
class HttpClient;

// Uploads a GIF to the user's own S3 bucket (or S3-compatible storage) with one SigV4-signed PUT.
class CloudUploader final : public Uploader
{
public:
    // Everything the upload needs, read once at start-up.
    struct Config
    {
        QString bucketName;
        QString region;
        QString cdnDomain;
        QString accessKeyId;
        QString secretAccessKey;
        // S3-compatible storage (R2, MinIO, B2, Spaces...): the PUT goes path-style to this base
        // URL. Empty for AWS itself.
        QString endpoint;

        // The S3 keys (a stored empty string stays empty; the fall-backs apply only to a missing
        // key), both credentials (empty when absent), and the endpoint, which the environment
        // variable VANTALO_S3_ENDPOINT overrides.
        static Config load(const UserDefaults& defaults, KeychainStore& keychain);
        // The endpoint alone, without asking the keyring (which may keep a caller waiting).
        static QString loadEndpoint(const UserDefaults& defaults);
    };

    static inline const char* endpointVariable = "VANTALO_S3_ENDPOINT";

    explicit CloudUploader(Config config);
    // The settings and credentials as they are at each upload: changed in Preferences, they apply
    // to the next one.
    explicit CloudUploader(std::function<Config()> config);
    ~CloudUploader() override;

    void upload(const QByteArray& data, const QString& filename, Progress progress, Completion done) override;

private:
    std::function<Config()> m_config;
    std::unique_ptr<QObject> m_context; // the signing jobs' watchers
    std::unique_ptr<HttpClient> m_http;
};

} // namespace vantalo
