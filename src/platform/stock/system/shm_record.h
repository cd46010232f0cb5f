#pragma once

#include <cstdint>

#include "platform/velomond_shm.h"

/* The layout of the shared memory. A record is written into the slot that is not published and then published, so a
 * writer that dies half-way leaves the last complete record valid. */
struct TShmSegment {
    uint32_t magic = 0;      // kShmMagic once the rest is initialized
    uint32_t version = 0;    // kShmVersion
    uint64_t generation = 0; // records published so far; the newest is in slot generation % 2
    t_velomond_shm slots[2];
};
static_assert(sizeof(TShmSegment) == 40);
constexpr uint32_t kShmMagic = 0x564d4f4e; // "VMON"
constexpr uint32_t kShmVersion = 1;
constexpr const char *kShmLockSuffix = ".lock"; // of the object that holds the writers' lock

/* Reads or writes the record in the POSIX shared memory `name`. Readers never wait for writers and never see a mix of
 * two records; the record reads as zeros until one is published, also in a segment that is too short or has another
 * format. Writers of all threads and processes take turns; a segment that a crash left short or that has another format
 * is initialized, one that belongs to another user is replaced, and an empty folder in its place is removed. Returns 0
 * or -errno: -ENOTEMPTY for a folder that is not empty, -EISDIR when reading one, -EPERM when reading another user's
 * segment, -EBUSY when the writers' lock is held for longer than a second, -EAGAIN when a reader was overtaken again
 * and again. *record is only changed on 0. */
int shm_record_get(const char *name, t_velomond_shm *record);
int shm_record_set(const char *name, const t_velomond_shm &record);
