#pragma once

#include <cstdint>
#include <string>

#include "base/json.h"
#include "common/history.h"
#include "surveillance/cam_channels.h"

/* How often the cameras failed to connect: the record of one minute and the
 * history of a day. */

/* One reading, or the difference of two, or a sum of differences. There is no running
 * sum: the flags of what has left the history could not be taken out of it. */
struct T_CAM_CONN_STAT {
    TCamChannelsPacked channels;
    uint64_t interval = 0;  // ms; raw: when it was read; else the length
    uint64_t timestamp = 0; // ms of wall clock, of the newest reading in it

    TCamChannels at() const { return channels.unpacked(); }

    T_CAM_CONN_STAT difference(const T_CAM_CONN_STAT &older) const;
};

class TCamConnStatManager : public TStatManagerBase<T_CAM_CONN_STAT> {
public:
    static constexpr const char *kKey = "MINUTE"; // the one entity

    TCamConnStatManager();
    ~TCamConnStatManager() override;
    TCamConnStatManager(const TCamConnStatManager &) = delete;
    TCamConnStatManager &operator=(const TCamConnStatManager &) = delete;

    /* By the record's own rule: counts are differences, flags are ORed. */
    int add_sample(const std::string &key, const T_CAM_CONN_STAT &raw) override;

    /* The sum of the newest n samples, n = 0 for all of them; zeros when there are
     * none. In place of the general one, which takes the running sum. */
    T_CAM_CONN_STAT get_total(const std::string &key, int n) const;

private:
    void init_map() override;

    TCamChannelsPacked m_newest; // of the newest element; guarded by m_lock
};

/* One reading out of the array of an answer, taken at now_ms. Elements without
 * an integer id or failure count, or with -1 for one of them, are skipped. */
T_CAM_CONN_STAT cam_conn_parse(json_object *array, uint64_t now_ms);

/* A sample as queries see it: one character per channel, times as texts. */
TJson cam_conn_json(const T_CAM_CONN_STAT &stat);
