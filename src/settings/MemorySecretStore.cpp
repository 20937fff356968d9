#include "MemorySecretStore.h"

namespace vantalo {

std::optional<QByteArray> MemorySecretStore::readSecret(const QString& account)
{
    const auto it = m_items.constFind(account);
    if (it == m_items.cend()) {
        return std::nullopt;
    }
    return it.value();
}

void MemorySecretStore::deleteSecret(const QString& account)
{
    m_items.remove(account);
}

bool MemorySecretStore::addSecret(const QString& account, const QByteArray& value)
{
    if (m_failWrites) {
        return false;
    }
    m_items.insert(account, value);
    return true;
}

} // namespace vantalo
