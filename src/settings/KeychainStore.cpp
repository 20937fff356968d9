#include "KeychainStore.h"

#include <QStringDecoder>

namespace vantalo {

QString accountName(CredentialKey key)
{
    switch (key) {
    case CredentialKey::accessKeyId:
        return QStringLiteral("aws-access-key-id");
    case CredentialKey::secretAccessKey:
        return QStringLiteral("aws-secret-access-key");
    }
    return {};
}

std::optional<QString> KeychainStore::loadCredential(CredentialKey key)
{
    const auto bytes = m_secrets.readSecret(accountName(key));
    if (!bytes) {
        return std::nullopt;
    }
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = decoder.decode(*bytes);
    if (decoder.hasError()) {
        return std::nullopt;
    }
    return text;
}

std::expected<void, Failure> KeychainStore::saveCredential(CredentialKey key, const QString& value)
{
    // Lone surrogates cannot be encoded without loss; leave the stored item alone then.
    QStringEncoder encoder(QStringEncoder::Utf8, QStringEncoder::Flag::Stateless);
    const QByteArray bytes = encoder.encode(value);
    if (encoder.hasError()) {
        return std::unexpected(Failure{QStringLiteral("it holds characters that cannot be stored")});
    }
    const QString account = accountName(key);
    m_secrets.deleteSecret(account);
    return m_secrets.addSecret(account, bytes);
}

} // namespace vantalo
