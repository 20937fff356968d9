#pragma once

#include "SecretStore.h"

#include <QHash>

namespace vantalo {

// Secrets kept in memory only, for tests and sessions without any keyring.
class MemorySecretStore final : public SecretStore
{
public:
    std::optional<QByteArray> readSecret(const QString& account) override;
    void deleteSecret(const QString& account) override;
    bool addSecret(const QString& account, const QByteArray& value) override;

    void setFailWrites(bool fail) { m_failWrites = fail; }

private:
    QMultiHash<QString, QByteArray> m_items;
    bool m_failWrites = false;
};

} // namespace vantalo
