#pragma once

#include <array>
#include <bitset>
#include <cstdint>
#include <memory>
#include <string>

#include "base/json.h"
#include "common/history.h"
#include "surveillance/camera_table.h"

/* How often the cameras failed to connect: the record of one minute and the
 * history of a day. */

struct T_CAM_CHANNELS {
    std::array<uint32_t, kCameraChannels> conn_failed_count{};
    std::bitset<kCameraChannels> valid;        // reported by the recording service
    std::bitset<kCameraChannels> info_changed; // its configuration changed

    bool operator==(const T_CAM_CHANNELS &) const = default;
};

/* One reading, or the difference of two, or a sum of differences. The channels
 * are shared by all copies and never change, so that copying a history of a day
 * moves handles, not the up to 1.2 MB behind them. */
struct T_CAM_CONN_STAT {
    std::shared_ptr<const T_CAM_CHANNELS> channels; // null: all zero
    bool changed_flag = false;                      // any channel's configuration changed
    uint64_t interval = 0;                          // ms; raw: when it was read; else the length
    uint64_t timestamp = 0;                         // ms of wall clock, of the newest reading in it

    const T_CAM_CHANNELS &at() const;

    T_CAM_CONN_STAT difference(const T_CAM_CONN_STAT &older) const;
    void add(const T_CAM_CONN_STAT &newer);
    /* Flags stay: what was ORed in cannot be taken out. See get_total. */
    void subtract(const T_CAM_CONN_STAT &element);
};

class TCamConnStatManager : public TStatManagerBase<T_CAM_CONN_STAT> {
public:
    static constexpr const char *kKey = "MINUTE"; // the one entity

    TCamConnStatManager();
    ~TCamConnStatManager() override;

    /* By the record's own rule: counts are differences, flags are ORed. */
    int add_sample(const std::string &key, const T_CAM_CONN_STAT &raw) override;

    /* The sum of the newest n samples, n = 0 for all of them; zeros when there are
     * none. In place of the general one, whose running sum would keep the flags of
     * samples that left the history. */
    T_CAM_CONN_STAT get_total(const std::string &key, int n);

private:
    void init_map() override;

    std::shared_ptr<const T_CAM_CHANNELS> m_newest; // of the newest element; guarded by m_lock
};

/* One reading out of the array of an answer, taken at now_ms. Elements without
 * an integer id or failure count, or with -1 for one of them, are skipped. */
T_CAM_CONN_STAT cam_conn_parse(json_object *array, uint64_t now_ms);

/* A sample as queries see it: one character per channel, times as texts. */
TJson cam_conn_json(const T_CAM_CONN_STAT &stat);
