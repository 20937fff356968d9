// The hosted service's answer to the initialization request, whatever a hostile or broken server
// sends: either both links are web links, or a failure with a reason to print.
#include "Check.h"
#include "sharing/HostedUploader.h"
#include "sharing/HttpTransfer.h"

#include <cstdint>

using namespace vantalo;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 1) {
        return 0;
    }
    // Mostly 200, sometimes the codes a service refuses with.
    static constexpr int statuses[] = {200, 200, 200, 200, 201, 400, 403, 500};
    const int status = statuses[data[0] % 8];
    const QByteArray body(reinterpret_cast<const char*>(data + 1), qsizetype(size - 1));
    const auto targets = HostedUploader::readInitAnswer(status, body);
    if (targets) {
        FUZZ_CHECK(status == 200);
        FUZZ_CHECK(isWebUrl(targets->uploadURL) && isWebUrl(targets->cdnURL));
        const QString scheme = targets->cdnURL.scheme().toLower();
        FUZZ_CHECK(scheme == QLatin1String("http") || scheme == QLatin1String("https"));
    } else {
        FUZZ_CHECK(!targets.error().description.isEmpty());
    }
    return 0;
}
