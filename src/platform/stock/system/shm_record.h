#pragma once

#include <cstdint>

#include "platform/velomond_shm.h"

/* The segment as it lies in shared memory. A record is written into the slot
 * that nobody is sent to and then made the published one, so a writer that dies
 * half-way leaves the last whole record in force. */
struct T_SHM_SEGMENT {
    uint32_t magic;      // kShmMagic once the rest is in order
    uint32_t version;    // kShmVersion
    uint64_t generation; // records published so far; the newest is in slot generation % 2
    t_velomond_shm slots[2];
};
static_assert(sizeof(T_SHM_SEGMENT) == 40);
constexpr uint32_t kShmMagic = 0x564d4f4e; // "VMON"
constexpr uint32_t kShmVersion = 1;
constexpr const char *kShmLockSuffix = ".lock"; // of the object that carries the writers' lock

/* The record in the POSIX shared memory `name`. Readers never wait for writers
 * and never see two records mixed; there is no record (zeros) until one was
 * published, also in a segment that is too short or not ours. Writers of all
 * threads and processes take turns; a segment that a crash left short or that
 * has another form is made ready, one that belongs to another user replaced, and an
 * empty folder in its place removed.
 * 0 or -errno: -ENOTEMPTY for a folder that is not empty, -EISDIR reading one, -EPERM
 * reading another user's segment, -EBUSY when somebody
 * holds the writers' lock for longer than a second, -EAGAIN when a reader was
 * overtaken again and again. *record is only touched on 0. */
int shm_record_get(const char *name, t_velomond_shm *record);
int shm_record_set(const char *name, const t_velomond_shm &record);
