// The history file as a hand edit or a damaged disk may leave it, read under several time zones
// (with the hours their daylight saving skips): what is read is written back exactly and reads
// back the same; no entry names a file outside the GIF directory.
#include "Check.h"
#include "history/GifHistoryStore.h"
#include "history/HistoryFile.h"

#include <QJsonDocument>

#include <array>
#include <cstdint>
#include <ctime>

using namespace vantalo;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0) {
        return 0;
    }
    static constexpr std::array zones{
        "UTC", "Europe/Berlin", "America/New_York", "Australia/Lord_Howe", "Asia/Kathmandu", "Pacific/Apia"};
    setenv("TZ", zones[data[0] % zones.size()], 1);
    tzset();
    const QByteArray json(reinterpret_cast<const char*>(data + 1), qsizetype(size - 1));

    const auto decoded = decodeHistory(json);
    if (!decoded) {
        return 0;
    }
    for (const GifHistoryItem& item : decoded->items) {
        FUZZ_CHECK(isPlainFilename(item.filename));
        FUZZ_CHECK(item.createdAt.isValid() && item.createdAt.time().msec() == 0);
    }
    const QByteArray written = encodeHistory(decoded->items);
    FUZZ_CHECK(QJsonDocument::fromJson(written).isArray());
    const auto again = decodeHistory(written);
    FUZZ_CHECK(again && again->ignored == 0);
    FUZZ_CHECK(again->items == decoded->items);
    FUZZ_CHECK(encodeHistory(again->items) == written);
    return 0;
}
