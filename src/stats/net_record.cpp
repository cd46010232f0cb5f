#include "stats/net_record.h"

#include <algorithm>
#include <net/if.h>
#include <sys/socket.h>

#include "stats/proc_text.h"
#include "stats/record_sums.h"

namespace {

using TSums = TRecordSums<&T_NET_STAT::tx, &T_NET_STAT::rx, &T_NET_STAT::inv_ms>;

uint64_t per_second(uint64_t bytes, uint64_t ms)
{
    constexpr double kBeyond = 18446744073709551616.0; // 2^64: not to be converted to an integer
    const double rate = static_cast<double>(bytes) / static_cast<double>(ms) * 1000.0;
    return rate < kBeyond ? static_cast<uint64_t>(rate) : UINT64_MAX;
}

} // namespace

T_NET_STAT T_NET_STAT::difference(const T_NET_STAT &older) const
{
    T_NET_STAT interval = *this;
    TSums::subtract(&interval, older);
    return interval;
}

void T_NET_STAT::add(const T_NET_STAT &element)
{
    TSums::add(this, element);
}

void T_NET_STAT::subtract(const T_NET_STAT &element)
{
    TSums::subtract(this, element);
}

std::vector<std::string> net_tracked(const ifaddrs *list)
{
    std::vector<std::string> names;
    for (const ifaddrs *entry = list; entry != nullptr; entry = entry->ifa_next) {
        if (entry->ifa_addr != nullptr && entry->ifa_addr->sa_family == AF_PACKET &&
            (entry->ifa_flags & IFF_LOOPBACK) == 0)
            names.emplace_back(entry->ifa_name);
    }
    return names;
}

TNetNames net_interfaces()
{
    ifaddrs *list = nullptr;
    if (getifaddrs(&list) != 0)
        return std::nullopt;
    std::vector<std::string> names = net_tracked(list);
    freeifaddrs(list);
    return names;
}

std::optional<TNetLine> net_line_parse(std::string_view line)
{
    constexpr size_t kName = 32;
    const size_t colon = line.find(':');
    if (colon == std::string_view::npos)
        return std::nullopt;
    std::string_view counters = line.substr(colon + 1);
    std::string_view name = text_next_word(&line);
    name = name.substr(0, std::min(name.find(':'), kName));
    if (name.empty())
        return std::nullopt;
    constexpr size_t kReceived = 0;
    constexpr size_t kSent = 8;
    uint64_t columns[kSent + 1] = {};
    text_next_columns(&counters, columns);
    return TNetLine{std::string(name), {.tx = columns[kSent], .rx = columns[kReceived]}};
}

T_NET_STAT net_rate(const T_NET_STAT &sum)
{
    T_NET_STAT rate = sum;
    if (sum.inv_ms != 0) {
        rate.tx = per_second(sum.tx, sum.inv_ms);
        rate.rx = per_second(sum.rx, sum.inv_ms);
    }
    return rate;
}

T_NET_STAT net_max(const std::vector<T_NET_STAT> &intervals)
{
    T_NET_STAT most;
    for (const T_NET_STAT &interval : intervals) {
        most.tx = std::max(most.tx, interval.tx);
        most.rx = std::max(most.rx, interval.rx);
    }
    return most;
}

T_NET_STAT net_min(const std::vector<T_NET_STAT> &intervals)
{
    T_NET_STAT fewest = {.tx = UINT64_MAX, .rx = UINT64_MAX};
    for (const T_NET_STAT &interval : intervals) {
        fewest.tx = std::min(fewest.tx, interval.tx);
        fewest.rx = std::min(fewest.rx, interval.rx);
    }
    return fewest;
}
