#include "surveillance/camera_table.h"

#include <cstdlib>
#include <iterator>
#include <tuple>
#include <utility>

#include "common/trace.h"
#include "platform/comutil.h"

namespace {

constexpr size_t kTextSize = 128;
constexpr const char *kTextNames[] = {"name", "guid", "umsid", "ip", "port", "brand", "ums_name"};
static_assert(std::size(kTextNames) == std::tuple_size_v<TCameraTexts>);

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
    TCameras cameras;
    const size_t count = json_object_array_length(array);
    for (size_t i = 0; i < count; ++i) {
        json_object *element = json_object_array_get_idx(array, i);
        int id = -1;
        (void)comutil_get_json_int_by_key(element, "id", &id);
        if (!camera_is_channel(id))
            continue;
        TCameraTexts &texts = cameras[id];
        for (size_t text = 0; text < texts.size(); ++text) {
            char buffer[kTextSize] = {};
            (void)comutil_get_json_str_by_key(element, kTextNames[text], buffer, sizeof(buffer));
            texts[text] = buffer;
        }
    }
    return cameras;
}

TJson camera_table_json(const TCameras &cameras)
{
    TJson array(json_object_new_array());
    for (const auto &[id, texts] : cameras) {
        TJson object(json_object_new_object());
        json_give(object.get(), "id", TJson(json_object_new_int(id)));
        for (size_t text = 0; text < texts.size(); ++text)
            json_give_text(object.get(), kTextNames[text], texts[text]);
        json_append(array.get(), std::move(object));
    }
    return array;
}
