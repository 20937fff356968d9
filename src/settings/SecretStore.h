#pragma once

#include "common/Failure.h"

#include <QByteArray>
#include <QString>

#include <expected>
#include <optional>

namespace vantalo {

// A store of generic-password items of one service, addressed by account. Synchronous: a
// backend that works asynchronously waits for its answer within its own time limit.
class SecretStore
{
public:
    virtual ~SecretStore() = default;

    // The item's bytes, or nothing when it is missing or cannot be read.
    virtual std::optional<QByteArray> readSecret(const QString& account) = 0;
    // Removes the item; a missing item is not an error.
    virtual void deleteSecret(const QString& account) = 0;
    // Adds the item, or says why it could not ("the keyring did not answer").
    virtual std::expected<void, Failure> addSecret(const QString& account, const QByteArray& value) = 0;
};

} // namespace vantalo
