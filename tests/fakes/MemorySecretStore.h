#pragma once

#include "settings/SecretStore.h"

#include <QHash>

namespace vantalo {

// Secrets kept in memory only, with writes that can be made to fail.
class MemorySecretStore final : public SecretStore
{
public:
    std::optional<QByteArray> readSecret(const QString& account) override
    {
        const auto it = m_items.constFind(account);
        if (it == m_items.cend()) {
            return std::nullopt;
        }
        return it.value();
    }
    void deleteSecret(const QString& account) override { m_items.remove(account); }
    std::expected<void, Failure> addSecret(const QString& account, const QByteArray& value) override
    {
        if (m_failWrites) {
            return std::unexpected(Failure{QStringLiteral("the keyring did not answer")});
        }
        m_items.insert(account, value);
        return {};
    }

    void setFailWrites(bool fail) { m_failWrites = fail; }

private:
    QMultiHash<QString, QByteArray> m_items;
    bool m_failWrites = false;
};

} // namespace vantalo
