#include "CloudUploader.h"

#include "settings/KeychainStore.h"
#include "settings/SettingsKeys.h"
#include "settings/UserDefaults.h"

namespace vantalo {

CloudUploader::Config CloudUploader::Config::load(const UserDefaults& defaults, KeychainStore& keychain)
{
    return Config{
        defaults.stringForKey(SettingsKey::s3BucketName).value_or(SettingsKey::defaultBucketName),
        defaults.stringForKey(SettingsKey::s3Region).value_or(SettingsKey::defaultRegion),
        defaults.stringForKey(SettingsKey::cdnDomain).value_or(SettingsKey::defaultCdnDomain),
        keychain.loadCredential(CredentialKey::accessKeyId).value_or(QString()),
        keychain.loadCredential(CredentialKey::secretAccessKey).value_or(QString()),
    };
}

} // namespace vantalo
