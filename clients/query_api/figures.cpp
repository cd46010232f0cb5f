#include "query_api/figures.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

namespace {

using enum TUnit;

constexpr std::array kCpuFigures = {
    TFigureSpec{"user_pcnt", "USER", kPercent, kPercent},     TFigureSpec{"sys_pcnt", "SYSTEM", kPercent, kPercent},
    TFigureSpec{"iowait_pcnt", "IOWAIT", kPercent, kPercent}, TFigureSpec{"steal_pcnt", "STEAL", kPercent, kPercent},
    TFigureSpec{"idle_pcnt", "IDLE", kPercent, kPercent},
};

constexpr std::array kCpuServiceFigures = {
    TFigureSpec{"total_pcnt", "TOTAL", kPercent, kPercent},
    TFigureSpec{"user_pcnt", "USER", kPercent, kPercent},
    TFigureSpec{"sys_pcnt", "SYSTEM", kPercent, kPercent},
};

constexpr std::array kMemoryFigures = {
    TFigureSpec{"MemTotal", "TOTAL", kKilobytes, kKilobytes},
    TFigureSpec{"MemUsed", "USED", kKilobytes, kKilobytes, true},
    TFigureSpec{"MemFree", "FREE", kKilobytes, kKilobytes},
    TFigureSpec{"MemAvailable", "AVAILABLE", kKilobytes, kKilobytes},
    TFigureSpec{"Buffers", "BUFFERS", kKilobytes, kKilobytes},
    TFigureSpec{"Cached", "CACHED", kKilobytes, kKilobytes},
    TFigureSpec{"SReclaimable", "RECLAIMABLE", kKilobytes, kKilobytes, true},
    TFigureSpec{"SwapTotal", "SWAP", kKilobytes, kKilobytes},
    TFigureSpec{"SwapFree", "SWAP-FREE", kKilobytes, kKilobytes},
    TFigureSpec{"pgmajfault", "MAJOR-FAULTS", kCount, kCount},
    TFigureSpec{"pgfault", "FAULTS", kCount, kCount},
    TFigureSpec{"zfs_mem_cache", "ZFS-CACHE", kKilobytes, kKilobytes, true},
};

constexpr std::array kMemoryServiceFigures = {
    TFigureSpec{"VmSize", "SIZE", kKilobytes, kKilobytes},
    TFigureSpec{"VmRSS", "RESIDENT", kKilobytes, kKilobytes},
    TFigureSpec{"maj_flt", "MAJOR-FAULTS", kCount, kCount},
    TFigureSpec{"min_flt", "FAULTS", kCount, kCount},
};

constexpr std::array kNetworkFigures = {
    TFigureSpec{"tx", "SENT", kBytes, kBytesPerSecond},
    TFigureSpec{"rx", "RECEIVED", kBytes, kBytesPerSecond},
};

constexpr std::array kDiskFigures = {
    TFigureSpec{"throughput", "THROUGHPUT", kKilobytes, kKilobytesPerSecond},
    TFigureSpec{"rd_latency", "READ-LATENCY", kMilliseconds, kMilliseconds},
    TFigureSpec{"wr_latency", "WRITE-LATENCY", kMilliseconds, kMilliseconds},
    TFigureSpec{"rd_io", "READS", kCount, kPerSecond},
    TFigureSpec{"wr_io", "WRITES", kCount, kPerSecond},
};

/* Above any real value, in any unit; 2^64 divided by the 15 minutes of a whole history
 * is still ten times larger. */
constexpr double kNoFigure = 1e15;

} // namespace

std::span<const TFigureSpec> figures_of(TKind kind)
{
    switch (kind) {
    case TKind::kCpu:
        return kCpuFigures;
    case TKind::kCpuService:
        return kCpuServiceFigures;
    case TKind::kMemory:
        return kMemoryFigures;
    case TKind::kMemoryService:
        return kMemoryServiceFigures;
    case TKind::kNetwork:
        return kNetworkFigures;
    case TKind::kDisk:
        return kDiskFigures;
    }
    return {};
}

std::string_view unit_text(TUnit unit)
{
    switch (unit) {
    case kPercent:
        return "%";
    case kKilobytes:
        return "kB";
    case kBytes:
        return "B";
    case kBytesPerSecond:
        return "B/s";
    case kKilobytesPerSecond:
        return "kB/s";
    case kMilliseconds:
        return "ms";
    case kPerSecond:
        return "1/s";
    case kCount:
        break;
    }
    return "";
}

TFigure TFigures::get(std::string_view key) const
{
    const auto found = std::find_if(all.begin(), all.end(), [key](const auto &one) { return one.spec->key == key; });
    return found != all.end() ? found->value : std::nullopt;
}

const std::vector<TFigure> *TSeries::get(std::string_view key) const
{
    const auto found = std::find_if(rows.begin(), rows.end(), [key](const auto &one) { return one.spec->key == key; });
    return found != rows.end() ? &found->points : nullptr;
}

bool figure_parse(std::string_view text, TFigure *out)
{
    double value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error == std::errc::invalid_argument || end != text.data() + text.size() || text.empty())
        return false;
    if (error == std::errc::result_out_of_range || !std::isfinite(value) || std::abs(value) >= kNoFigure)
        *out = std::nullopt;
    else
        *out = value;
    return true;
}
