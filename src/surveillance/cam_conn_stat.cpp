#include "surveillance/cam_conn_stat.h"

#include "common/trace.h"
#include "platform/comutil.h"

namespace {

constexpr const char *kHeader = "sysstat_camconn.h";
constexpr int32_t kMaxSamples = 1440; // one reading in a minute: 24 hours

} // namespace

T_CAM_CONN_STAT T_CAM_CONN_STAT::difference(const T_CAM_CONN_STAT &older) const
{
    TCamChannels element = at();
    element -= older.at();
    return {TCamChannelsPacked(element), interval - older.interval, timestamp};
}

TCamConnStatManager::TCamConnStatManager()
{
    trace(kHeader, "TCamConnStatManager", 86);
    m_max_samples = kMaxSamples;
    TCamConnStatManager::init_map();
}

TCamConnStatManager::~TCamConnStatManager()
{
    trace(kHeader, "~TCamConnStatManager", 93);
}

int TCamConnStatManager::add_sample(const std::string &key, const T_CAM_CONN_STAT &raw)
{
    return store(key, raw, [this](const T_CAM_CONN_STAT &newer, const T_CAM_CONN_STAT &older) {
        T_CAM_CONN_STAT element = newer.difference(older);
        /* While nothing happens, every minute is like the one before. */
        if (m_newest.unpacked() == element.at())
            element.channels = m_newest;
        m_newest = element.channels;
        return element;
    });
}

void TCamConnStatManager::init_map()
{
    track(kKey);
}

T_CAM_CONN_STAT TCamConnStatManager::get_total(const std::string &key, int n) const
{
    const auto newest = copy_newest(key, n > 0 ? static_cast<size_t>(n) : SIZE_MAX);
    TCamChannels channels;
    T_CAM_CONN_STAT sum;
    /* Oldest first: the last one added leaves its time stamp. */
    for (const T_CAM_CONN_STAT &element : newest.value_or(std::vector<T_CAM_CONN_STAT>())) {
        channels += element.at();
        sum.interval += element.interval;
        sum.timestamp = element.timestamp;
    }
    sum.channels = TCamChannelsPacked(channels);
    return sum;
}

T_CAM_CONN_STAT cam_conn_parse(json_object *array, uint64_t now_ms)
{
    TCamChannels channels;
    const size_t length = json_object_array_length(array);
    for (size_t i = 0; i < length; ++i) {
        json_object *element = json_object_array_get_idx(array, i);
        int id = -1;
        int failed = -1;
        (void)comutil_get_json_int_by_key(element, "id", &id);
        (void)comutil_get_json_int_by_key(element, "conn_failed_count", &failed);
        if (failed == -1 || !camera_is_channel(id))
            continue;
        const auto channel = static_cast<size_t>(id);
        json_object *changed = json_member(element, "info_changed");
        if (json_object_is_type(changed, json_type_boolean) && json_object_get_boolean(changed) != 0)
            channels.info_changed.set(channel);
        channels.conn_failed_count[channel] = static_cast<uint32_t>(failed);
        channels.valid.set(channel);
    }
    return {TCamChannelsPacked(channels), now_ms, now_ms};
}

TJson cam_conn_json(const T_CAM_CONN_STAT &stat)
{
    const TCamChannels channels = stat.at();
    std::string states(kCameraChannels, '2');
    std::string changes(kCameraChannels, '0');
    for (size_t i = 0; i < kCameraChannels; ++i) {
        if (channels.valid[i])
            states[i] = channels.conn_failed_count[i] != 0 ? '1' : '0';
        if (channels.info_changed[i])
            changes[i] = '1';
    }
    TJson object(json_object_new_object());
    json_give_text(object.get(), "cam_stat", states);
    json_give_text(object.get(), "conf_changed", changes);
    json_give(object.get(), "changed_flag", TJson(json_object_new_boolean(channels.info_changed.any() ? 1 : 0)));
    json_give_text(object.get(), "interval", std::to_string(stat.interval));
    json_give_text(object.get(), "timestamp", std::to_string(stat.timestamp));
    return object;
}
