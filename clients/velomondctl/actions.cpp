#include <algorithm>
#include <array>
#include <charconv>
#include <string>

#include "query_api/clean_text.h"
#include "velomondctl/commands.h"
#include "velomondctl/recorder.h"

namespace {

/* Names for the types of notices that the monitor handles. */
struct TNotice {
    const char *word;
    int type;
};
constexpr std::array kNotices = {TNotice{"storage", 1033}, TNotice{"disks", 1035}, TNotice{"bus", 2048}};

} // namespace

bool TSettings::is_here() const
{
    return address.host == "127.0.0.1" || address.host == "localhost" || address.host == "::1";
}

TOutcome command_dump(const TSettings &settings, bool wait)
{
    constexpr std::chrono::milliseconds kWait = std::chrono::minutes(2); // for a round with slow disks
    TQueryApi api(settings.address);
    api.begin(wait ? std::max(kWait, settings.timeout) : settings.timeout);
    TOutcome outcome = api.dump();
    if (!outcome.ok())
        return outcome;
    const std::string folder = settings.is_here() ? newest_dump_here() : "";
    return put_out(folder.empty() ? "dump written\n" : "dump written: " + folder + "\n");
}

TOutcome command_notify(const TSettings &settings, const std::string &type)
{
    int number = 0;
    const auto *known =
        std::find_if(kNotices.begin(), kNotices.end(), [&](const TNotice &one) { return type == one.word; });
    const auto [end, error] = std::from_chars(type.data(), type.data() + type.size(), number);
    if (known != kNotices.end())
        number = known->type;
    else if (error != std::errc() || end != type.data() + type.size() || number < 0)
        return failure(TFault::kUsage,
                       "unknown type of notice: " + clean_text(type) + " (storage, disks, bus, or a number)");
    TQueryApi api(settings.address);
    api.begin(settings.timeout);
    TOutcome outcome = api.notify(number);
    return outcome.ok() ? put_out("notice " + std::to_string(number) + " delivered\n") : outcome;
}
