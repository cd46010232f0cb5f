#include "fuzz.h"

#include <string>

#include "large.h"
#include "surveillance/cam_conn_stat.h"
#include "surveillance/camera_table.h"
#include "surveillance/proxy_rules.h"
#include "surveillance/recording_stat.h"

namespace {

constexpr uint64_t kNowMs = 1'700'000'000'000;

/* An id beyond the channels ends the process, as intended. */
bool is_beyond_channels(json_object *array)
{
    for (size_t i = 0; i < json_object_array_length(array); ++i) {
        json_object *id = nullptr;
        json_object *const element = json_object_array_get_idx(array, i);
        if (json_object_is_type(element, json_type_object) && json_object_object_get_ex(element, "id", &id) &&
            json_object_is_type(id, json_type_int) && json_object_get_int64(id) >= kCameraChannels)
            return true;
    }
    return false;
}

void take_cameras(const std::string &text)
{
    const TJson root = json_parse(text);
    json_object *data = nullptr;
    if (root == nullptr || !json_object_object_get_ex(root.get(), "data", &data) ||
        !json_object_is_type(data, json_type_array) || is_beyond_channels(data))
        return;
    const TJson channels = camera_table_json(camera_table_parse(data));
    FUZZ_CHECK(json_object_array_length(channels.get()) <= json_object_array_length(data));
    const T_CAM_CONN_STAT first = cam_conn_parse(data, kNowMs);
    const T_CAM_CONN_STAT element = first.difference({});
    FUZZ_CHECK(element.at() == first.at());
    FUZZ_CHECK(cam_conn_json(element) != nullptr);
}

void take_rules(const std::string &text)
{
    TProxyAnswer answer;
    std::string error;
    if (proxy_answer_parse(text, &answer, &error) != 0)
        FUZZ_CHECK(!error.empty() && answer.rules.empty());
    for (const TProxyRule &rule : answer.rules) {
        (void)proxy_remaining_ms(rule, kNowMs);
        FUZZ_CHECK(!proxy_guid_is_name(rule.guid) || rule.guid.find('/') == std::string::npos);
    }
}

void take_answer(const std::string &answer)
{
    bool is_recording = false;
    if (recording_answer_parse(answer, &is_recording) != 0)
        FUZZ_CHECK(!is_recording);
    take_cameras(answer);
    take_rules(answer);
}

} // namespace

/* Answers of the recording and the configuration service. */
void fuzz_one(std::string_view text)
{
    take_answer(std::string(text));
    fuzz_large(text, take_answer);
}
