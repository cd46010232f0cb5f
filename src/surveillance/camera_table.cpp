#include "surveillance/camera_table.h"

#include <cstdlib>

#include "common/trace.h"
#include "platform/comutil.h"

namespace {

constexpr size_t kTextSize = 128;

struct TText {
    const char *key;
    std::string TCamera::*text;
};
constexpr TText kTexts[] = {
    {"name", &TCamera::name}, {"guid", &TCamera::guid},   {"umsid", &TCamera::umsid},       {"ip", &TCamera::ip},
    {"port", &TCamera::port}, {"brand", &TCamera::brand}, {"ums_name", &TCamera::ums_name},
};

} // namespace

bool camera_is_channel(int id)
{
    if (id >= kCameraChannels) {
        write_stderr("channel id %d is beyond the %d channels there are\n", id, kCameraChannels);
        std::abort();
    }
    return id >= 0;
}

TCameras camera_table_parse(json_object *array)
{
    TCameras cameras(kCameraChannels);
    const size_t count = json_object_array_length(array);
    for (size_t i = 0; i < count; ++i) {
        json_object *element = json_object_array_get_idx(array, i);
        int id = -1;
        (void)comutil_get_json_int_by_key(element, "id", &id);
        if (!camera_is_channel(id))
            continue;
        TCamera camera;
        camera.valid = true;
        for (const TText &one : kTexts) {
            char buffer[kTextSize] = {};
            (void)comutil_get_json_str_by_key(element, one.key, buffer, sizeof(buffer));
            camera.*one.text = buffer;
        }
        cameras[static_cast<size_t>(id)] = std::move(camera);
    }
    return cameras;
}

TJson camera_table_json(const TCameras &cameras)
{
    TJson array(json_object_new_array());
    for (size_t id = 0; id < cameras.size(); ++id) {
        if (!cameras[id].valid)
            continue;
        TJson object(json_object_new_object());
        json_give(object.get(), "id", TJson(json_object_new_int(static_cast<int>(id))));
        for (const TText &one : kTexts)
            json_give_text(object.get(), one.key, cameras[id].*one.text);
        json_append(array.get(), std::move(object));
    }
    return array;
}

void TCameraTable::replace(TCameras cameras)
{
    auto loaded = std::make_shared<const TCameras>(std::move(cameras));
    const TLock guard(m_lock);
    m_cameras.swap(loaded); // the old table goes after the lock
}

void TCameraTable::clear()
{
    const TLock guard(m_lock);
    m_cameras.reset();
}

std::shared_ptr<const TCameras> TCameraTable::get() const
{
    const TLock guard(m_lock);
    return m_cameras;
}
