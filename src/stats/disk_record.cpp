#include "stats/disk_record.h"

#include <algorithm>

#include "stats/proc_text.h"
#include "stats/record_sums.h"

namespace {

constexpr const char *kBlanks = " \t\n\v\f\r"; // as the C library has them

using TSums = TRecordSums<&T_DISK_STAT::rd_ios, &T_DISK_STAT::rd_sec, &T_DISK_STAT::rd_ticks, &T_DISK_STAT::wr_ios,
                          &T_DISK_STAT::wr_sec, &T_DISK_STAT::wr_ticks, &T_DISK_STAT::rq_ticks, &T_DISK_STAT::inv_ms>;

} // namespace

T_DISK_STAT T_DISK_STAT::difference(const T_DISK_STAT &older) const
{
    T_DISK_STAT interval = *this;
    TSums::subtract(&interval, older);
    return interval;
}

void T_DISK_STAT::add(const T_DISK_STAT &element)
{
    TSums::add(this, element);
}

void T_DISK_STAT::subtract(const T_DISK_STAT &element)
{
    TSums::subtract(this, element);
}

std::optional<TDiskLine> disk_line_parse(std::string_view line)
{
    /* The C library's "%u" reads a number of 64 bits and keeps the low half. */
    uint64_t numbers[2] = {}; // major, minor
    if (text_next_columns(&line, numbers) != std::size(numbers))
        return std::nullopt;
    line.remove_prefix(std::min(line.find_first_not_of(kBlanks), line.size()));
    line.remove_prefix(std::min(line.find_first_of(kBlanks), line.size())); // the name

    /* Reads, merged, sectors, ms; the same of writes; under way, ms, weighted ms. */
    uint64_t columns[11] = {};
    if (text_next_columns(&line, columns) != std::size(columns))
        return std::nullopt;
    return TDiskLine{static_cast<uint32_t>(numbers[0]),
                     static_cast<uint32_t>(numbers[1]),
                     {.rd_ios = columns[0],
                      .rd_sec = columns[2],
                      .rd_ticks = columns[3],
                      .wr_ios = columns[4],
                      .wr_sec = columns[6],
                      .wr_ticks = columns[7],
                      .rq_ticks = static_cast<uint32_t>(columns[10])}};
}

std::string disk_path_of_key(const std::string &key)
{
    return key.substr(0, key.find_first_of(kBlanks));
}

TDiskMetrics calc_disk_metrics(const T_DISK_STAT &sum, long ticks_per_s)
{
    constexpr uint64_t kSectorsPerKb = 2;
    constexpr uint32_t kQueueMs = 1000;
    constexpr double kMost = 100.0;
    const auto quotient = [](uint64_t ticks, uint64_t ios) {
        return ios != 0 ? static_cast<double>(ticks) / static_cast<double>(ios) : 0.0;
    };
    const uint64_t whole_kb = (sum.rd_sec + sum.wr_sec) / kSectorsPerKb;
    const uint32_t whole_queue = sum.rq_ticks / kQueueMs;
    /* The scale is what readers of the dumps know, though it is not a plain percentage.
     * I/O in no time is infinite and so 100; no I/O in no time is not a number, which
     * std::min leaves alone. */
    const double pctutil = static_cast<double>(sum.rd_ticks + sum.wr_ticks) / static_cast<double>(sum.inv_ms) *
                           static_cast<double>(ticks_per_s) / 10.0;
    return {.throughput = static_cast<double>(whole_kb),
            .rd_latency = quotient(sum.rd_ticks, sum.rd_ios),
            .wr_latency = quotient(sum.wr_ticks, sum.wr_ios),
            .rd_io = static_cast<double>(sum.rd_ios),
            .wr_io = static_cast<double>(sum.wr_ios),
            .queue = static_cast<double>(whole_queue),
            .pctutil = std::min(pctutil, kMost),
            .inv_ms = sum.inv_ms,
            .tp_ms = sum.tp_ms};
}

TDiskMetrics disk_metrics_per_second(const TDiskMetrics &amounts)
{
    TDiskMetrics rates = amounts;
    if (amounts.inv_ms == 0)
        return rates;
    const auto inv_ms = static_cast<double>(amounts.inv_ms);
    for (double *rate : {&rates.throughput, &rates.rd_io, &rates.wr_io, &rates.queue})
        *rate = *rate / inv_ms * 1000;
    return rates;
}
