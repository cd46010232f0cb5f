#include "fuzz.h"

#include <algorithm>
#include <array>
#include <map>
#include <string>

#include "base/json.h"
#include "fake_platform/fake_platform.h"
#include "stats/sysstat_cpu.h"
#include "stats/sysstat_disk.h"
#include "stats/sysstat_memory.h"
#include "stats/sysstat_net.h"
#include "surveillance/sysstat_camconn.h"

namespace {

/* The statistics that answer queries, with a history each. */
class TKinds : fake::TPlatformTest {
public:
    TKinds()
    {
        write_file("/proc/stat", "cpu  1 2 3 4 5 6 7 8 9 10\ncpu0 1 2 3 4 5 6 7 8 9 10\n");
        write_file("/proc/meminfo", "MemTotal: 4096000 kB\nMemFree: 1024000 kB\nSwapTotal: 7 kB\n");
        write_file("/proc/net/dev", "  lo: 1 0 0 0 0 0 0 0 2\neth0: 3 0 0 0 0 0 0 0 4\n");
        sysstat_cpu_init();
        sysstat_net_init();
        sysstat_disk_init();
        sysstat_memory_init();
        sysstat_camconn_init();
        for (int i = 0; i < 10; ++i) {
            fake::advance_ms(10000);
            sysstat_cpu_sample();
            sysstat_net_sample();
            sysstat_memory_sample();
        }
    }
    ~TKinds() override
    {
        sysstat_camconn_uninit();
        sysstat_memory_uninit();
        sysstat_disk_uninit();
        sysstat_net_uninit();
        sysstat_cpu_uninit();
    }
    TKinds(const TKinds &) = delete;
    TKinds &operator=(const TKinds &) = delete;

private:
    void TestBody() override {}
};

/* Takes the text up to `end`, which is removed too. */
std::string_view take_until(std::string_view *rest, char end)
{
    const size_t size = std::min(rest->find(end), rest->size());
    const std::string_view taken = rest->substr(0, size);
    rest->remove_prefix(std::min(size + 1, rest->size()));
    return taken;
}

void check_answer(const httpserver::http_response &reply)
{
    FUZZ_CHECK(reply.get_response_code() == 200 && reply.get_content_type() == "application/json");
    const TJson answer(json_tokener_parse(reply.get_body().c_str()));
    FUZZ_CHECK(json_object_is_type(answer.get(), json_type_object));
    json_object *result = nullptr;
    if (!json_object_object_get_ex(answer.get(), "return", &result))
        return;
    constexpr std::array kResults = {0, -1, -2, -3, -4, -6};
    FUZZ_CHECK(std::find(kResults.begin(), kResults.end(), json_object_get_int(result)) != kResults.end());
}

} // namespace

/* Requests as "METHOD TARGET\nBODY", with the arguments as the server passes them: decoded, truncated at a NUL. */
void fuzz_one(std::string_view text)
{
    static const TKinds kinds;
    const std::string method(take_until(&text, ' '));
    std::string_view target = take_until(&text, '\n');
    const std::string path(take_until(&target, '?'));
    std::map<std::string, std::string> arguments;
    while (!target.empty()) {
        std::string_view argument = take_until(&target, '&');
        const std::string name(take_until(&argument, '='));
        arguments.emplace(name, argument);
    }
    if (const auto reply = fake::call_route(method, path, arguments, std::string(text)))
        check_answer(*reply);
    fake::state()->notices.clear(); // they would fill the memory
}
