#include "bench.h"

#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include "base/text.h"
#include "platform/host_path.h"
#include "service/handlers.h"
#include "stats/process_table.h"
#include "stats/sysstat_cpu.h"
#include "stats/sysstat_disk.h"
#include "stats/sysstat_memory.h"
#include "stats/sysstat_net.h"
#include "surveillance/sysstat_camconn.h"

/* Processors that are said to be there; 0: those that are. */
static long g_cores = 0;

/* In place of the library's, so that the daemon's code sees them. */
extern "C" long sysconf(int name) noexcept
{
    using TSysconf = long (*)(int);
    static const auto library = reinterpret_cast<TSysconf>(dlsym(RTLD_NEXT, "sysconf"));
    return name == _SC_NPROCESSORS_ONLN && g_cores > 0 ? g_cores : library(name);
}

namespace {

constexpr int kRounds = 92; // full histories
constexpr int kTurns = 21;
constexpr int kAnswers = 100;
constexpr int kDay = 1442; // readings of the cameras

/* A size that an appliance may have more of, and what grows with it. */
struct TKind {
    const char *name;
    int small, large;
    int (*step)();
    TResponse (*answer)(const httpserver::http_request &request);
    const char *method, *argument; // of the question
};

int sample_processes()
{
    TRoundProcesses processes;
    sysstat_cpu_sample_round(&processes);
    return sysstat_memory_sample_round(&processes);
}

std::string g_cameras; // an answer of the recording service

int sample_cameras()
{
    static uint64_t minute = 0;
    const TJson data = json_parse(g_cameras);
    ++minute;
    return g_p_CamConnstatManager->add_sample(TCamConnStatManager::kKey, cam_conn_parse(data.get(), 60000 * minute));
}

constexpr TKind kKinds[] = {
    {"processes", 100, 10000, sample_processes, proc_mem_get, "avg", "name"},
    {"processors", 4, 256, sysstat_cpu_sample, proc_cpu_get, "avg", "name"},
    {"interfaces", 2, 200, sysstat_net_sample, proc_net_get, "avg", "if_name"},
    {"disks", 1, 64, sysstat_disk_sample, proc_dsk_get, "avg", "vol_name"},
    {"cameras", 12, 192, sample_cameras, proc_cam_conn_get, "total", "name"},
};

void write(const std::string &path, const std::string &text)
{
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path) << text;
}

/* A tree with that many of a kind; what is not of the kind is small. */
void make_tree(const std::string &root, std::string_view kind, int size)
{
    const auto count = [&](std::string_view one, int usual) { return kind == one ? size : usual; };
    std::string processors = "cpu  1 2 3 4 5 6 7 8 9 10\n", interfaces = "Inter-|\n face |\n", disks;
    for (int i = 0; i < count("processors", 4); ++i)
        processors += text_format("cpu%d 1 2 3 4 5 6 7 8 9 10\n", i);
    for (int i = 0; i < count("interfaces", 2); ++i)
        interfaces += text_format("  nic%d: 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16\n", i);
    std::filesystem::create_directories(root + "/dev/mapper");
    for (int i = 0; i < count("disks", 1); ++i) {
        disks += text_format(" 253 %d dm-%d 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17\n", i, i);
        (void)mknod((root + "/dev/mapper/cachedev" + std::to_string(i)).c_str(), S_IFBLK | 0600,
                    makedev(253, static_cast<unsigned>(i)));
    }
    for (int i = 0; i < count("processes", 100); ++i) {
        const std::string folder = root + "/proc/" + std::to_string(1000 + i);
        const auto row = static_cast<size_t>(i);
        write(folder + "/comm", std::string(row < kProcessTable.size() ? kProcessTable[row] : "idle") + "\n");
        write(folder + "/stat", "1 (x) S 1 1 1 0 -1 0 1 2 3 4 5 6 7 8 20 0 1 0 9 10 11 12\n");
        write(folder + "/statm", "10 9 8 7 6 5 4\n");
    }
    write(root + "/proc/stat", processors);
    write(root + "/proc/net/dev", interfaces);
    write(root + "/proc/diskstats", disks);
    for (const char *file : {"/proc/meminfo", "/proc/vmstat"})
        write(root + file, std::string(std::istreambuf_iterator<char>(std::ifstream(file).rdbuf()), {}));
}

/* The question about the last one of its kind. */
class TQuestion : public httpserver::http_request {
public:
    TQuestion(const TKind &kind, int size)
    {
        const std::string last = std::to_string(size - 1);
        const std::map<std::string_view, std::string> names = {{"processes", kProcessTable.back()},
                                                               {"processors", "cpu" + last},
                                                               {"interfaces", "nic" + last},
                                                               {"disks", "/dev/mapper/cachedev" + last},
                                                               {"cameras", ""}};
        m_arguments = {{"method", kind.method}, {"type", "0"}, {"count", "0"}, {kind.argument, names.at(kind.name)}};
    }
    std::string get_arg(const std::string &key) const override
    {
        const auto found = m_arguments.find(key);
        return found != m_arguments.end() ? found->second : "";
    }
    std::string get_content() const override { return ""; }

private:
    std::map<std::string, std::string> m_arguments;
};

/* CPU time of a step and of an answer in microseconds, memory in KiB. */
struct TCost {
    double step, answer, pss;
};

/* Measures in a process of its own, whose root is the tree. */
TCost measure(const std::string &kind, int size)
{
    TCost figures = {};
    const std::string root = host_path("/scale");
    std::filesystem::remove_all(root);
    make_tree(root, kind, size);
    const std::string command = "VELOMOND_ROOT=" + root + " /proc/" + std::to_string(getpid()) + "/exe --scale " +
                                kind + " " + std::to_string(size);
    char line[128] = "";
    if (FILE *output = popen(command.c_str(), "re"); output != nullptr) {
        (void)!fgets(line, sizeof(line), output);
        (void)pclose(output);
    }
    char *rest = line;
    for (double *one : {&figures.step, &figures.answer, &figures.pss})
        *one = strtod(rest, &rest);
    if (figures.pss == 0)
        printf("%s did not work\n", command.c_str());
    std::filesystem::remove_all(root);
    return figures;
}

} // namespace

int bench_scale_child(const char *kind_name, int size)
{
    const TKind *kind = std::find_if(std::begin(kKinds), std::end(kKinds),
                                     [kind_name](const TKind &one) { return std::string_view(one.name) == kind_name; });
    if (kind == std::end(kKinds))
        return 2;
    const std::string_view name = kind->name;
    g_cores = name == "processors" ? size : 4;
    sysstat_cpu_init();
    std::vector<std::string> interfaces;
    interfaces.resize(name == "interfaces" ? static_cast<size_t>(size) : 2);
    for (size_t i = 0; i < interfaces.size(); ++i)
        interfaces[i] = "nic" + std::to_string(i);
    g_p_NetstatManager = new TNetstatManager(interfaces);
    sysstat_disk_init();
    sysstat_memory_init();
    g_p_CamConnstatManager = new TCamConnStatManager;
    g_cameras = "[";
    for (int i = 0; i < (name == "cameras" ? size : 12); ++i)
        g_cameras += text_format(R"(%s{"id":%d,"conn_failed_count":%d})", i == 0 ? "" : ",", i, 7 * i);
    g_cameras += "]";
    for (int i = 0; i < (name == "cameras" ? kDay : name == "processes" ? kTurns : kRounds); ++i)
        kind->step();

    const TQuestion question(*kind, size);
    const auto answer = [&] {
        for (int i = 0; i < kAnswers; ++i)
            (void)kind->answer(question);
    };
    const TPair pair = bench_medians(
        kTurns, [&] { return bench_cpu_us(kind->step); }, [&] { return bench_cpu_us(answer) / kAnswers; });
    printf("%f %f %f\n", pair.ours, pair.floor, bench_memory_mib("Pss:") * 1024);
    return 0;
}

void bench_scale()
{
    printf("\n%-44s %12s %12s  %-10s %7s\n", "", "small", "large", "", "growth");
    for (const TKind &kind : kKinds) {
        const TCost small = measure(kind.name, kind.small), large = measure(kind.name, kind.large);
        const double size = static_cast<double>(kind.large) / kind.small;
        const std::string what = text_format("%d and %d %s", kind.small, kind.large, kind.name);
        bench_growth((what + ", a reading").c_str(), small.step, large.step, "us CPU", size);
        bench_growth("    an answer", small.answer, large.answer, "us CPU", size);
        bench_growth("    memory", small.pss, large.pss, "KiB PSS", size);
    }
}
