#pragma once

#include <QString>

namespace vantalo {

class UserDefaults;
class KeychainStore;

// Uploads a GIF to the user's own S3 bucket.
class CloudUploader
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

        // The three S3 keys (a stored empty string stays empty; the fall-backs apply only to a
        // missing key) and both credentials (empty when absent).
        static Config load(const UserDefaults& defaults, KeychainStore& keychain);
    };

    explicit CloudUploader(Config config) : m_config(std::move(config)) {}

    const Config& config() const { return m_config; }

private:
    Config m_config;
};

} // namespace vantalo
