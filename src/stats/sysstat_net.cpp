#include "stats/sysstat_net.h"

#include <algorithm>
#include <net/if.h>
#include <sys/socket.h>
#include <utility>

#include "base/text.h"
#include "common/query.h"
#include "platform/host_path.h"
#include "platform/time_stamp.h"
#include "stats/proc_text.h"
#include "stats/stat_answer.h"
#include "stats/stat_dump.h"

TNetstatManager *g_p_NetstatManager = nullptr;

namespace {

constexpr const char *kSource = "sysstat_net.cpp";
constexpr const char *kPrintedInterface = "eth0";
constexpr size_t kLine = 256;
constexpr size_t kName = 32;

constexpr T_FIGURE<T_NET_STAT> kAnswer[] = {{"tx", figure_u64<&T_NET_STAT::tx>}, {"rx", figure_u64<&T_NET_STAT::rx>}};
constexpr T_FIGURE<T_NET_STAT> kRows[] = {{"time_stamp(ms)", figure_u64<&T_NET_STAT::tp_ms>},
                                          {"tx", figure_u64<&T_NET_STAT::tx>},
                                          {"rx", figure_u64<&T_NET_STAT::rx>}};
constexpr T_FIGURE<T_NET_STAT> kPrint[] = {{"tx    =", figure_u64<&T_NET_STAT::tx>},
                                           {"rx    =", figure_u64<&T_NET_STAT::rx>},
                                           {"inv_ms=", figure_i64<&T_NET_STAT::inv_ms>},
                                           {"tp_ms =", figure_i64<&T_NET_STAT::tp_ms>}};

std::deque<T_NET_STAT> history_of(const std::string &name)
{
    return g_p_NetstatManager->copy_history(name).value_or(std::deque<T_NET_STAT>());
}

constexpr T_STAT_METHOD kMethods[] = {
    {"cur_data", false,
     [](const std::string &name, int) { return stat_object(kAnswer, g_p_NetstatManager->get_current(name)); }},
    {"avg", true,
     [](const std::string &name, int count) {
         return stat_object(kAnswer, net_rate(g_p_NetstatManager->get_total(name, count)));
     }},
    {"total", true,
     [](const std::string &name, int count) {
         return stat_object(kAnswer, g_p_NetstatManager->get_total(name, count));
     }},
    {"line_data", false,
     [](const std::string &name, int) {
         return stat_series(kAnswer, g_p_NetstatManager->copy_history(name), net_rate);
     }},
    {"max", true,
     [](const std::string &name, int count) { return stat_object(kAnswer, net_max(history_of(name), count)); }},
    {"min", true,
     [](const std::string &name, int count) { return stat_object(kAnswer, net_min(history_of(name), count)); }},
};

uint64_t per_second(uint64_t bytes, uint64_t ms)
{
    constexpr double kBeyond = 18446744073709551616.0; // 2^64: as an integer it would have no value
    const double rate = static_cast<double>(bytes) / static_cast<double>(ms) * 1000.0;
    return rate < kBeyond ? static_cast<uint64_t>(rate) : UINT64_MAX;
}

/* Starts from `start` and lets `pick` choose between what it has and an interval. */
template <typename PICK> T_NET_STAT extreme(const std::deque<T_NET_STAT> &history, int count, uint64_t start, PICK pick)
{
    const size_t wanted = count > 0 ? static_cast<size_t>(count) + 1 : history.size();
    T_NET_STAT found;
    found.tx = found.rx = start;
    for (size_t i = 0; i < std::min(wanted, history.size()); ++i) {
        const T_NET_STAT &element = history[history.size() - 1 - i];
        found.tx = pick(found.tx, element.tx);
        found.rx = pick(found.rx, element.rx);
    }
    return found;
}

} // namespace

/* --- Record and manager ---------------------------------------------------- */

T_NET_STAT T_NET_STAT::difference(const T_NET_STAT &older) const
{
    return {tx - older.tx, rx - older.rx, inv_ms - older.inv_ms, tp_ms};
}

void T_NET_STAT::add(const T_NET_STAT &element)
{
    tx += element.tx;
    rx += element.rx;
    inv_ms += element.inv_ms;
}

void T_NET_STAT::subtract(const T_NET_STAT &element)
{
    tx -= element.tx;
    rx -= element.rx;
    inv_ms -= element.inv_ms;
}

TNetstatManager::TNetstatManager(T_NET_NAMES interfaces) : m_interfaces(std::move(interfaces))
{
    trace("sysstat_net.h", "TNetstatManager", 90);
    TNetstatManager::init_map();
}

TNetstatManager::~TNetstatManager()
{
    trace("sysstat_net.h", "~TNetstatManager", 95);
}

void TNetstatManager::init_map()
{
    trace(kSource, "init_map", 29);
    if (!m_interfaces) {
        tell("getifaddrs failed.\n");
        return;
    }
    for (const std::string &name : *m_interfaces)
        track(name);
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

T_NET_NAMES net_interfaces()
{
    ifaddrs *list = nullptr;
    if (getifaddrs(&list) != 0)
        return std::nullopt;
    std::vector<std::string> names = net_tracked(list);
    freeifaddrs(list);
    return names;
}

/* --- Sampling -------------------------------------------------------------- */

bool net_line_parse(std::string_view line, std::string *name, T_NET_STAT *stat)
{
    const size_t colon = line.find(':');
    if (colon == std::string_view::npos)
        return false;
    std::string_view counters = line.substr(colon + 1);
    std::string_view word = text_next_word(&line);
    word = word.substr(0, std::min(word.find(':'), kName));
    if (word.empty())
        return false;
    name->assign(word);
    constexpr size_t kReceived = 0;
    constexpr size_t kSent = 8;
    uint64_t columns[kSent + 1] = {};
    for (uint64_t &column : columns) {
        if (!text_next_u64(&counters, &column))
            break;
    }
    stat->rx = columns[kReceived];
    stat->tx = columns[kSent];
    return true;
}

int sysstat_net_sample()
{
    std::string text;
    if (proc_read(host_path("/proc/net/dev").c_str(), &text) != 0)
        return -1;
    if (g_p_NetstatManager == nullptr)
        return 0;
    std::string_view rest = text;
    text_next_line(&rest, kLine); // two lines of headings
    text_next_line(&rest, kLine);
    T_NET_STAT stat;
    stat.inv_ms = stat.tp_ms = current_time_stamp();
    std::string name;
    for (std::string_view line = text_next_line(&rest, kLine); !line.empty(); line = text_next_line(&rest, kLine)) {
        if (net_line_parse(line, &name, &stat))
            g_p_NetstatManager->add_sample(name, stat);
    }
    return 0;
}

/* --- Computing ------------------------------------------------------------- */

T_NET_STAT net_rate(const T_NET_STAT &sum)
{
    T_NET_STAT rate = sum;
    if (sum.inv_ms != 0) {
        rate.tx = per_second(sum.tx, sum.inv_ms);
        rate.rx = per_second(sum.rx, sum.inv_ms);
    }
    return rate;
}

T_NET_STAT net_max(const std::deque<T_NET_STAT> &history, int count)
{
    return extreme(history, count, 0, [](uint64_t a, uint64_t b) { return std::max(a, b); });
}

T_NET_STAT net_min(const std::deque<T_NET_STAT> &history, int count)
{
    return extreme(history, count, UINT64_MAX, [](uint64_t a, uint64_t b) { return std::min(a, b); });
}

/* --- Lifecycle, queries, dump ---------------------------------------------- */

int sysstat_net_init()
{
    trace(kSource, "sysstat_net_init", 405);
    g_p_NetstatManager = new TNetstatManager(net_interfaces());
    return 0;
}

int sysstat_net_uninit()
{
    trace(kSource, "sysstat_net_uninit", 412);
    delete g_p_NetstatManager;
    g_p_NetstatManager = nullptr;
    return 0;
}

int sysstat_net_proc(const char *method, const char *type, const char *name, json_object **out)
{
    const int result = query_head(method, name, g_p_NetstatManager, "g_p_NetstatManager");
    return result == kQueryOk ? stat_answer(kMethods, method, type, name, out) : result;
}

int sysstat_net_info(json_object **out)
{
    trace(kSource, "sysstat_net_info", 336);
    if (!json_is_valid(*out))
        return -1;
    if (g_p_NetstatManager == nullptr)
        return 0;
    for (const auto &[name, entry] : g_p_NetstatManager->entries())
        json_append_text(*out, name);
    return 0;
}

int sysstat_net_dump(const char *folder)
{
    trace_folder(kSource, "sysstat_net_dump", 351, folder);
    if (g_p_NetstatManager == nullptr)
        return 0;
    std::string text;
    for (const auto &[name, entry] : g_p_NetstatManager->entries()) {
        text.append(name).push_back('\n');
        stat_rows(&text, kRows, history_of(name));
        text.push_back('\n');
    }
    csv_write(folder, "net_stats.csv", text);
    return 0;
}

int sysstat_net_print()
{
    if (g_p_NetstatManager == nullptr)
        return 0;
    tell("get_total 15min\n");
    stat_print(kPrint, g_p_NetstatManager->get_total(kPrintedInterface, 0));
    tell("get_total 10sec\n");
    stat_print(kPrint, g_p_NetstatManager->get_total(kPrintedInterface, 1));
    return 0;
}
