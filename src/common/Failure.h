#pragma once

#include <QString>

#include <concepts>

namespace vantalo {

// An error as the user reads it: the fixed description of one of Vantalo's error enums, or the
// message of a platform service passed through unchanged.
struct Failure
{
    QString description;
    // The user mends it in Preferences, in the upload settings (credentials, an endpoint).
    bool mendedInUploadSettings = false;
};

template<typename E>
concept DescribedError = std::is_enum_v<E> && requires(E e)
{
    {
        describe(e)
        } -> std::convertible_to<QString>;
};

template<DescribedError E> Failure failureOf(E error)
{
    return Failure{describe(error)};
}

} // namespace vantalo
