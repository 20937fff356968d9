#pragma once

#include "SecretStore.h"

#include <QString>

#include <optional>

namespace vantalo {

enum class CredentialKey
{
    accessKeyId,
    secretAccessKey,
};

inline const QString keychainService = QStringLiteral("com.vantalo.app");
QString accountName(CredentialKey key);

// The two upload credentials, as UTF-8 items of the service "com.vantalo.app".
class KeychainStore
{
public:
    explicit KeychainStore(SecretStore& secrets) : m_secrets(secrets) {}

    // The stored text; nothing when the item is missing, unreadable or not valid UTF-8.
    std::optional<QString> loadCredential(CredentialKey key);
    // Replaces the item (delete, then add; an empty value is stored as an empty item), or says
    // why it could not.
    std::expected<void, Failure> saveCredential(CredentialKey key, const QString& value);

private:
    SecretStore& m_secrets;
};

} // namespace vantalo
