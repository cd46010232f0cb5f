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

/* The unfinished looks, by their places. */
class TLooks {
public:
    int join(const std::string &path, uint64_t limit_ms, std::function<void(TPlace *)> work, TPlace *out)
    {
        TCallWait wait;
        TLock lock(m_lock);
        std::shared_ptr<TLook> look = m_running[path];
        if (look == nullptr) {
            look = std::make_shared<TLook>();
            look->deadline_ms = current_time_stamp_mono_r() + limit_ms;
            const int error = thread_start_detached(
                "PLACE-look", [this, path, look, work = std::move(work)] { run(path, work, look.get()); });
            if (error != 0) {
                m_running.erase(path);
                return -error;
            }
            m_running[path] = look;
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

private:
    void run(const std::string &path, const std::function<void(TPlace *)> &work, TLook *look)
    {
        TPlace place;
        try {
            work(&place);
        } catch (const std::exception &) {
            place.error = ENOMEM;
        }
        const TLock guard(m_lock);
        look->place = place;
        look->is_done = true;
        m_running.erase(path);
        call_waits_wake();
    }

    TMutex m_lock;
    std::map<std::string, std::shared_ptr<TLook>> m_running GUARDED_BY(m_lock);
};

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

int place_look_by(const std::string &path, uint64_t limit_ms, std::function<void(TPlace *)> look, TPlace *out)
{
    static auto &looks = *new TLooks; // abandoned threads may end at any time
    return looks.join(path, limit_ms, std::move(look), out);
}
