#include "platform/stock/system/shm_record.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <memory>
#include <string>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "base/fd.h"
#include "base/text.h"
#include "platform/logging.h"
#include "platform/stock/config/state_changes.h"

namespace {

constexpr const char *kName = "/velomond";
constexpr mode_t kMode = 0644;
constexpr mode_t kLockMode = 0600;             // any process that can open a file can hold its lock
constexpr const char *kShmFolder = "/dev/shm"; // where shm_open keeps its objects; it cannot remove folders
constexpr int kReadTries = 1000;
constexpr int kLockTries = 1000;
constexpr auto kLockPause = std::chrono::milliseconds(1);

static_assert(std::atomic_ref<uint64_t>::is_always_lock_free && std::atomic_ref<int32_t>::is_always_lock_free);

template <typename TValue> TValue load(TValue &word)
{
    return std::atomic_ref<TValue>(word).load(std::memory_order_acquire);
}

template <typename TValue> void store(TValue &word, TValue value)
{
    std::atomic_ref<TValue>(word).store(value, std::memory_order_release);
}

struct TUnmap {
    void operator()(TShmSegment *segment) const { (void)munmap(segment, sizeof(TShmSegment)); }
};
using TMapping = std::unique_ptr<TShmSegment, TUnmap>;

/* Maps the segment into this process; null with errno on failure. Always writable: atomic access to a read-only page is
 * not guaranteed. */
TMapping map_segment(int fd)
{
    void *at = mmap(nullptr, sizeof(TShmSegment), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    return TMapping(at != MAP_FAILED ? static_cast<TShmSegment *>(at) : nullptr);
}

bool is_ready(TShmSegment &segment)
{
    return load(segment.magic) == kShmMagic && load(segment.version) == kShmVersion;
}

/* Word by word, each an acquire or a release: a reader that sees a word of a newer record also sees the generation
 * published before that record was begun, and so knows that its copy is mixed. */
t_velomond_shm copy_out(t_velomond_shm &slot)
{
    return {load(slot.disk_present), load(slot.reserved), load(slot.storage_setting)};
}

void copy_in(t_velomond_shm &slot, const t_velomond_shm &record)
{
    store(slot.disk_present, record.disk_present);
    store(slot.reserved, record.reserved);
    store(slot.storage_setting, record.storage_setting);
}

bool is_ours(const struct stat &status)
{
    return S_ISREG(status.st_mode) && (status.st_uid == geteuid() || status.st_uid == 0);
}

/* The error of shm_open: the C library turns EISDIR into EINVAL, and our names are valid. */
int error_of_open()
{
    return errno == EINVAL ? EISDIR : errno;
}

/* Opens an object for writing, creating it if missing. An object of another user, or one put there by mistake, might be
 * truncated or locked at any time; it is replaced by our own. */
int open_for_writing(const char *name, mode_t mode, TFd *out)
{
    for (int i = 0; i < 3; ++i) {
        /* First without O_CREAT: with it, the kernel may refuse to open another user's object in a shared folder. */
        TFd fd(shm_open(name, O_RDWR, 0));
        if (!fd.is_open() && errno == ENOENT)
            fd = TFd(shm_open(name, O_RDWR | O_CREAT | O_EXCL, mode));
        struct stat status = {};
        if (fd.is_open() && fstat(fd.get(), &status) == 0 && is_ours(status)) {
            *out = std::move(fd);
            return 0;
        }
        const int error = fd.is_open() ? 0 : error_of_open();
        if (error == EISDIR) { // any user can create one; removed if it is empty
            if (rmdir((kShmFolder + std::string(name)).c_str()) != 0 && errno != ENOENT)
                return -errno;
            continue;
        }
        const bool in_the_way = error == 0 || error == EACCES || error == ELOOP || error == ENXIO;
        if (!in_the_way && error != EEXIST)
            return -error;
        if (in_the_way)
            (void)shm_unlink(name);
    }
    return -EPERM;
}

/* The lock belongs to the descriptor, so it is released when a writer dies, and two threads exclude each other as two
 * processes do. */
int lock_writers(int fd)
{
    for (int i = 0; i < kLockTries; ++i) {
        if (flock(fd, LOCK_EX | LOCK_NB) == 0)
            return 0;
        if (errno != EWOULDBLOCK && errno != EINTR)
            return -errno;
        std::this_thread::sleep_for(kLockPause);
    }
    return -EBUSY;
}

void make_ready(TShmSegment &segment)
{
    store(segment.magic, uint32_t{0}); // not valid until all is initialized
    store(segment.version, kShmVersion);
    store(segment.generation, uint64_t{0});
    copy_in(segment.slots[0], {});
    store(segment.magic, kShmMagic);
}

/* A failure is logged when it begins, not for as long as it lasts. */
int logged(const char *what, int result)
{
    static TStateChanges outcomes;
    if (outcomes.is_news(what, result))
        log_Debug("shared memory %s cannot be %s: %s", kName, what, error_text(-result).c_str());
    return result;
}

} // namespace

int shm_record_get(const char *name, t_velomond_shm *record)
{
    const TFd fd(shm_open(name, O_RDWR, 0)); // descriptors of shm_open are close-on-exec
    if (!fd.is_open() && errno == ENOENT) {
        *record = {};
        return 0;
    }
    if (!fd.is_open())
        return -error_of_open();
    struct stat status = {};
    if (fstat(fd.get(), &status) != 0)
        return -errno;
    if (!is_ours(status))
        return -EPERM;
    if (status.st_size < static_cast<off_t>(sizeof(TShmSegment)) || status.st_blocks == 0) { // never written
        *record = {};
        return 0;
    }
    const TMapping segment = map_segment(fd.get());
    if (segment == nullptr)
        return -errno;
    if (!is_ready(*segment)) {
        *record = {};
        return 0;
    }
    for (int i = 0; i < kReadTries; ++i) {
        const uint64_t generation = load(segment->generation);
        const t_velomond_shm copy = copy_out(segment->slots[generation % 2]);
        if (load(segment->generation) == generation) {
            *record = copy;
            return 0;
        }
    }
    return -EAGAIN;
}

int shm_record_set(const char *name, const t_velomond_shm &record)
{
    const std::string lock_name = std::string(name) + kShmLockSuffix;
    TFd lock, fd;
    int result = open_for_writing(lock_name.c_str(), kLockMode, &lock);
    if (result == 0)
        result = lock_writers(lock.get());
    if (result == 0)
        result = open_for_writing(name, kMode, &fd);
    /* Grows, never shrinks: other processes may have it mapped. Allocated memory cannot raise SIGBUS when the file
     * system is full. */
    if (result == 0)
        result = -posix_fallocate(fd.get(), 0, sizeof(TShmSegment));
    if (result != 0)
        return result;
    const TMapping segment = map_segment(fd.get());
    if (segment == nullptr)
        return -errno;
    if (!is_ready(*segment))
        make_ready(*segment);
    const uint64_t next = load(segment->generation) + 1;
    copy_in(segment->slots[next % 2], record);
    store(segment->generation, next);
    return 0;
}

int velomond_shm_get(t_velomond_shm *record)
{
    return logged("read", shm_record_get(kName, record));
}

int velomond_shm_set(const t_velomond_shm *record)
{
    return logged("written", shm_record_set(kName, *record));
}
