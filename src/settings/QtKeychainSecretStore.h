#pragma once

#include "SecretStore.h"

#include "common/Console.h"

#include <chrono>
#include <functional>

namespace QKeychain {
class Job;
}

namespace vantalo {

// Generic-password items in the desktop keyring through QtKeychain (Secret Service on Linux,
// the Keychain on macOS). QtKeychain's jobs are asynchronous; each is awaited in a local event
// loop that ignores user input, for at most `timeLimit`: a locked keyring may raise a password
// prompt and never answer, and Vantalo must not hang on it.
class QtKeychainSecretStore final : public SecretStore
{
public:
    explicit QtKeychainSecretStore(QString service, LinePrinter print = stdoutPrinter(),
                                   std::chrono::milliseconds timeLimit = std::chrono::seconds(10));

    std::optional<QByteArray> readSecret(const QString& account) override;
    void deleteSecret(const QString& account) override;
    std::expected<void, Failure> addSecret(const QString& account, const QByteArray& value) override;

private:
    enum class Outcome
    {
        succeeded,
        notFound,
        failed,
        timedOut,
    };
    // `failure` gets the keyring's words when it refuses the job.
    Outcome run(QKeychain::Job* job, const std::function<void(QKeychain::Job*)>& onSuccess = {},
                QString* failure = nullptr);
    void reportUnavailable(const QString& reason);
    bool heldAsBase64(const QString& account) const;

    QString m_service;
    LinePrinter m_print;
    std::chrono::milliseconds m_timeLimit;
    bool m_reported = false;
};

} // namespace vantalo
