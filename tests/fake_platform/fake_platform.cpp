#include "fake_platform/fake_platform.h"

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <unistd.h>

#include "common/tick.h"
#include "platform/host_path.h"
#include "platform/time_stamp.h"

namespace fake {
namespace {

constexpr uint64_t kStartWallMs = 1'700'000'000'000; // 2023-11-14 22:13:20 UTC
constexpr uint64_t kStartMonoMs = 1'000'000;
constexpr uint64_t kBetweenTestsMs = 1'000'000'000;

/* One lock and one condition for every wait: tests have few threads, and
 * pass_waits must see them all. */
struct TWaits {
    std::mutex lock;
    std::condition_variable changed;
    std::function<void(vos_cond_t *, int)> hook;
    int to_pass = 0;
    std::string of_thread;                            // "": any thread
    std::map<const vos_cond_t *, std::string> asleep; // names of the threads
    std::set<const vos_cond_t *> ready;
    bool passes(const std::string &thread) const { return to_pass > 0 && (of_thread.empty() || of_thread == thread); }
};
TWaits &waits()
{
    static auto &one = *new TWaits; // never destroyed: workers may outlive main
    return one;
}

} // namespace

std::atomic<uint64_t> g_wall_ms{kStartWallMs}, g_mono_ms{kStartMonoMs};

TLockedState state()
{
    static auto &lock = *new std::recursive_mutex; // never destroyed either
    static auto &one = *new TState;
    return {std::unique_lock(lock), one};
}

void advance_ms(uint64_t ms)
{
    g_wall_ms += ms;
    g_mono_ms += ms;
}

void on_wait(std::function<void(vos_cond_t *, int)> hook)
{
    const std::lock_guard guard(waits().lock);
    waits().hook = std::move(hook);
    waits().to_pass = 0;
}

void pass_waits(int count, const std::string &thread)
{
    std::unique_lock guard(waits().lock);
    waits().to_pass = count;
    waits().of_thread = thread;
    waits().changed.notify_all();
    const auto done = [&] {
        const auto is_it = [&](const auto &one) { return thread.empty() || one.second == thread; };
        return waits().to_pass == 0 && std::ranges::any_of(waits().asleep, is_it);
    };
    if (!waits().changed.wait_for(guard, std::chrono::seconds(30), done))
        ADD_FAILURE() << "no worker came to its wait";
}

std::string woken_by_ticks(const std::string &thread, const std::vector<uint64_t> &after_ms)
{
    std::string all;
    for (const uint64_t ms : after_ms) {
        advance_ms(ms);
        const int before = state()->cond_signals;
        tick_run();
        all += std::to_string(state()->cond_signals - before);
        pass_waits(0, thread);
    }
    return all;
}

TPlatformTest::TPlatformTest()
{
    state().state = {};
    on_wait(nullptr);
    g_wall_ms = kStartWallMs;
    static uint64_t start_ms = kStartMonoMs; // data kept for the life of the process is stale in the next test
    g_mono_ms = start_ms += kBetweenTestsMs;
    setenv("TZ", "UTC", 1);
    tzset();
    std::string name = (std::filesystem::temp_directory_path() / "velomond_test_XXXXXX").string();
    EXPECT_NE(mkdtemp(name.data()), nullptr);
    state()->root = name;
    /* The log folder's own mode is for root only; tests need not be root. */
    std::filesystem::create_directories(host_path("/Vdbglog/.velolog"));
}

TPlatformTest::~TPlatformTest()
{
    EXPECT_EQ(state()->streams_open, 0);
    tick_end();
    std::error_code ignored;
    std::filesystem::remove_all(root(), ignored);
}

void TPlatformTest::write_file(const std::string &path, const std::string &text)
{
    const std::filesystem::path full = host_path(path);
    std::filesystem::create_directories(full.parent_path());
    ASSERT_TRUE(std::ofstream(full) << text) << path;
}

std::string TPlatformTest::read_file(const std::string &path)
{
    std::ifstream file(host_path(path));
    return {std::istreambuf_iterator(file), {}};
}

} // namespace fake

/* The linker redirects the daemon's calls here. */
extern "C" int __real_pthread_create(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *);
extern "C" int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*entry)(void *),
                                     void *argument)
{
    const int error = fake::state()->thread_error;
    return error != 0 ? error : __real_pthread_create(thread, attributes, entry, argument);
}

/* In place of the library's. */
extern "C" unsigned alarm(unsigned seconds)
{
    EXPECT_TRUE(seconds == 0 || seconds == 10);
    if (seconds != 0 && ++fake::state()->alarms == fake::state()->hanging_alarm) {
        kill(getpid(), SIGALRM);
        pause();
    }
    return 0;
}

std::string host_path(std::string_view path)
{
    return fake::state()->root + std::string(path);
}

uint64_t current_time_stamp()
{
    return fake::g_wall_ms;
}

uint64_t current_time_stamp_mono()
{
    return fake::g_mono_ms;
}

uint64_t current_time_stamp_mono_r()
{
    return fake::g_mono_ms;
}

struct tm get_local_time(time_t seconds)
{
    static std::mutex zone_lock;
    const std::lock_guard guard(zone_lock);
    struct tm date = {};
    tzset(); // tests change the zone
    localtime_r(&seconds, &date);
    return date;
}

int get_date_and_time(struct tm *date, uint64_t mono_ms)
{
    *date = get_local_time(static_cast<time_t>((fake::g_wall_ms - fake::g_mono_ms + mono_ms) / 1000));
    return 0;
}

int vos_cond_wait_init(vos_cond_t *cond, int clock)
{
    EXPECT_EQ(clock, 1);
    const std::lock_guard guard(fake::waits().lock);
    EXPECT_TRUE(fake::waits().ready.insert(cond).second);
    cond->signalled = false;
    return 0;
}

int vos_cond_wait(vos_cond_t *cond, int seconds)
{
    auto &waits = fake::waits();
    std::unique_lock guard(waits.lock);
    EXPECT_TRUE(waits.ready.contains(cond));
    if (seconds == 0)
        return std::exchange(cond->signalled, false) ? 0 : ETIMEDOUT;
    if (!cond->signalled && waits.hook) {
        const auto hook = waits.hook;
        guard.unlock();
        hook(cond, seconds);
        guard.lock();
    } else if (!cond->signalled) {
        char name[16] = "";
        pthread_getname_np(pthread_self(), name, sizeof(name));
        waits.asleep[cond] = name;
        waits.changed.notify_all();
        waits.changed.wait(guard, [&] { return cond->signalled || waits.passes(name); });
        waits.asleep.erase(cond);
        if (!cond->signalled) {
            --waits.to_pass;
            fake::advance_ms(static_cast<uint64_t>(seconds) * 1000);
        }
    }
    return std::exchange(cond->signalled, false) ? 0 : ETIMEDOUT;
}

int vos_cond_wait_signal(vos_cond_t *cond)
{
    ++fake::state()->cond_signals;
    const std::lock_guard guard(fake::waits().lock);
    EXPECT_TRUE(fake::waits().ready.contains(cond));
    cond->signalled = true;
    fake::waits().asleep.erase(cond);
    fake::waits().changed.notify_all();
    return 0;
}

int vos_cond_wait_destroy(vos_cond_t *cond)
{
    const std::lock_guard guard(fake::waits().lock);
    EXPECT_EQ(fake::waits().ready.erase(cond), 1U);
    return 0;
}
