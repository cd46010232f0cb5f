#pragma once

#include <memory>
#include <string>
#include <vector>

#include "base/json.h"
#include "base/mutex.h"

/* The identities of the camera channels, from the recording service. */

constexpr int kCameraChannels = 192; // numbered from 0

/* Whether an id that the recording service gave is that of a channel; negative
 * ones are not. An id beyond the tables means that the two programs do not
 * belong together: the process ends with a message before any table is touched. */
bool camera_is_channel(int id);

/* One channel. Texts are of at most 127 characters. */
struct TCamera {
    bool valid = false;
    std::string name, guid, umsid, ip, port, brand, ums_name;
};
using TCameras = std::vector<TCamera>; // kCameraChannels of them

/* Takes the channels out of the array of an answer. Elements without an integer
 * id are ignored; texts that are missing or are none stay empty. */
TCameras camera_table_parse(json_object *array);

/* The valid channels as an array of objects, in channel order. */
TJson camera_table_json(const TCameras &cameras);

/* The channels as last loaded. Tables are replaced whole and never change, so a
 * reader keeps the one it got. Any thread may call. */
class TCameraTable {
public:
    void replace(TCameras cameras);
    void clear();

    /* Null until the first load. */
    std::shared_ptr<const TCameras> get() const;

private:
    mutable TMutex m_lock;
    std::shared_ptr<const TCameras> m_cameras GUARDED_BY(m_lock);
};
