#include "stats/sysstat_net.h"

#include <utility>

#include "platform/time_stamp.h"
#include "stats/proc_text.h"
#include "stats/stat_dump.h"
#include "stats/stat_kind.h"

TNetstatManager *g_p_NetstatManager = nullptr;

namespace {

constexpr const char *kSource = "sysstat_net.cpp";
constexpr size_t kLine = 256;

/* The figures of an interface: in answers and in the dump, and in the print. */
constexpr TFigure<T_NET_STAT> kFigures[] = {{"tx", figure_u64<&T_NET_STAT::tx>}, {"rx", figure_u64<&T_NET_STAT::rx>}};
constexpr TFigure<T_NET_STAT> kPrintFigures[] = {{"tx    =", figure_u64<&T_NET_STAT::tx>},
                                                 {"rx    =", figure_u64<&T_NET_STAT::rx>},
                                                 {"inv_ms=", figure_i64<&T_NET_STAT::inv_ms>},
                                                 {"tp_ms =", figure_i64<&T_NET_STAT::tp_ms>}};
constexpr TStatPrint<T_NET_STAT> kPrint = {kPrintFigures};
constexpr TStatViews<T_NET_STAT> kBytes = {{kFigures}};
constexpr TStatViews<T_NET_STAT> kRates = {{kFigures, net_rate}};

/* The extreme of one more interval than was asked for: the one that ended when these
 * began counts. 0 asks for all. */
template <auto kExtreme>
constexpr TStatSource<T_NET_STAT> kExtremeOf = {
    true, [](const TStatManagerBase<T_NET_STAT> &manager, const std::string &name, int count) {
        const size_t wanted = count > 0 ? static_cast<size_t>(count) + 1 : SIZE_MAX;
        return kExtreme(manager.copy_newest(name, wanted).value_or(std::vector<T_NET_STAT>()));
    }};

constexpr TStatMethod<T_NET_STAT> kMethods[] = {
    {"cur_data", kNewest<T_NET_STAT>, kBytes}, {"avg", kTotal<T_NET_STAT>, kRates},
    {"total", kTotal<T_NET_STAT>, kBytes},     {"line_data", kSeries<T_NET_STAT>, kRates},
    {"max", kExtremeOf<net_max>, kBytes},      {"min", kExtremeOf<net_min>, kBytes},
};

} // namespace

TNetstatManager::TNetstatManager(TNetNames interfaces) : m_interfaces(std::move(interfaces))
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
        write_stderr("getifaddrs failed.\n");
        return;
    }
    for (const std::string &name : *m_interfaces)
        track(name);
}

int sysstat_net_init()
{
    trace(kSource, "sysstat_net_init", 405);
    g_p_NetstatManager = new TNetstatManager(net_interfaces());
    return 0;
}

int sysstat_net_uninit()
{
    return stat_uninit(&g_p_NetstatManager, kSource, "sysstat_net_uninit", 412);
}

int sysstat_net_sample()
{
    const auto text = proc_read("/proc/net/dev");
    if (!text)
        return -1;
    if (g_p_NetstatManager == nullptr)
        return 0;
    const uint64_t now_ms = current_time_stamp();
    std::string_view rest = *text;
    text_next_line(&rest, kLine); // two lines of headings
    text_next_line(&rest, kLine);
    for (std::string_view line; !(line = text_next_line(&rest, kLine)).empty();) {
        auto parsed = net_line_parse(line);
        if (!parsed)
            continue;
        parsed->stat.inv_ms = parsed->stat.tp_ms = now_ms;
        g_p_NetstatManager->add_sample(parsed->name, parsed->stat);
    }
    return 0;
}

int sysstat_net_proc(const char *method, const char *type, const char *name, json_object **out)
{
    return stat_proc<T_NET_STAT>(kMethods, g_p_NetstatManager, "g_p_NetstatManager", method, type, name, out);
}

int sysstat_net_info(json_object **out)
{
    trace(kSource, "sysstat_net_info", 336);
    if (!json_is_valid(*out))
        return -1;
    if (g_p_NetstatManager == nullptr)
        return 0;
    for (const std::string &name : g_p_NetstatManager->keys())
        json_append_text(*out, name);
    return 0;
}

int sysstat_net_dump(const char *folder)
{
    trace_folder(kSource, "sysstat_net_dump", 351, folder);
    if (g_p_NetstatManager == nullptr)
        return 0;
    std::string text;
    for (const std::string &name : g_p_NetstatManager->keys())
        stat_block(&text, name, kBytes.of(name), stat_history(*g_p_NetstatManager, name));
    csv_write(folder, "net_stats.csv", text);
    return 0;
}

int sysstat_net_print()
{
    if (g_p_NetstatManager != nullptr)
        stat_print_totals(*g_p_NetstatManager, "eth0", 1, kPrint);
    return 0;
}
