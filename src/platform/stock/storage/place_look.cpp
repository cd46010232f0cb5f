#include "platform/stock/storage/place_look.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <exception>
#include <map>
#include <memory>
#include <sys/stat.h>
#include <utility>

#include "base/mutex.h"
#include "base/thread.h"
#include "platform/host_path.h"
#include "platform/interrupt.h"
#include "platform/stock/process/call_wait.h"
#include "platform/time_stamp.h"

namespace {

constexpr uint64_t kLimitMs = 5000;

struct TLook {
    uint64_t deadline_ms = 0; // monotonic
    bool is_done = false;
    TPlace place;
};

/* The unfinished looks, by their places; kept to the end, as abandoned threads may end at any time. */
TMutex g_lock;
auto &g_running GUARDED_BY(g_lock) = *new std::map<std::string, std::shared_ptr<TLook>>;

/* The body of a look's thread. */
void run(const std::string &path, const std::function<void(TPlace *)> &work, TLook *look)
{
    TPlace place;
    try {
        work(&place);
    } catch (const std::exception &) {
        place.error = ENOMEM;
    }
    const TLock guard(g_lock);
    look->place = place;
    look->is_done = true;
    g_running.erase(path);
    call_waits_wake();
}

void look_at(const std::string &path, TPlace *out)
{
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0 || realpath(path.c_str(), out->real) == nullptr ||
        statvfs(path.c_str(), &out->space) != 0)
        out->error = errno;
    out->is_folder = S_ISDIR(status.st_mode);
}

} // namespace

int place_look(const std::string &path, TPlace *out)
{
    return place_look_by(
        path, kLimitMs, [full = host_path(path)](TPlace *place) { look_at(full, place); }, out);
}

int place_look_by(const std::string &path, uint64_t limit_ms, std::function<void(TPlace *)> work, TPlace *out)
{
    TCallWait wait;
    TLock lock(g_lock);
    std::shared_ptr<TLook> look = g_running[path];
    if (look == nullptr) {
        look = std::make_shared<TLook>();
        look->deadline_ms = current_time_stamp_mono_r() + limit_ms;
        const int error =
            thread_start_detached("PLACE-look", [path, look, work = std::move(work)] { run(path, work, look.get()); });
        if (error != 0) {
            g_running.erase(path);
            return -error;
        }
        g_running[path] = look;
    }
    while (!look->is_done) {
        if (platform_interrupted())
            return -EINTR;
        const uint64_t now_ms = current_time_stamp_mono_r();
        if (now_ms >= look->deadline_ms)
            return -ETIMEDOUT;
        lock.unlock();
        wait.wait({}, look->deadline_ms - now_ms);
        lock.lock();
    }
    *out = look->place;
    return 0;
}
