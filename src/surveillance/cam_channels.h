#pragma once

#include <array>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "surveillance/camera_table.h"

/* What is known of the camera channels at one reading, or over a time. A channel
 * that is not valid has not failed: its count is 0. */
struct T_CAM_CHANNELS {
    std::array<uint32_t, kCameraChannels> conn_failed_count{};
    std::bitset<kCameraChannels> valid;        // reported by the recording service
    std::bitset<kCameraChannels> info_changed; // its configuration changed

    bool operator==(const T_CAM_CHANNELS &) const = default;

    /* The counts' sum or difference (32 bits, they wrap); flags are ORed. */
    T_CAM_CHANNELS &operator+=(const T_CAM_CHANNELS &other);
    T_CAM_CHANNELS &operator-=(const T_CAM_CHANNELS &other);
};

/* The same in as few bytes as it takes, for a history of a day. Copies share the
 * bytes, which never change. */
class TCamChannelsPacked {
public:
    TCamChannelsPacked() = default; // nothing is valid
    explicit TCamChannelsPacked(const T_CAM_CHANNELS &channels);

    T_CAM_CHANNELS unpacked() const;

    /* At most kMostBytes, which is less than the record has. */
    static size_t packed_bytes(const T_CAM_CHANNELS &channels);
    static constexpr size_t kMostBytes = 800;

private:
    std::shared_ptr<const uint8_t[]> m_bytes; // null: nothing is valid
};
