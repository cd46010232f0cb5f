#pragma once

#include <array>
#include <bitset>
#include <cstdint>
#include <memory>
#include <string>

#include "surveillance/camera_table.h"

/* What is known of the camera channels at one reading, or over a time. A channel
 * that is not valid has not failed: its count is 0. */
struct TCamChannels {
    std::array<uint32_t, kCameraChannels> conn_failed_count{};
    std::bitset<kCameraChannels> valid;        // reported by the recording service
    std::bitset<kCameraChannels> info_changed; // its configuration changed

    bool operator==(const TCamChannels &) const = default;

    /* The counts' sum or difference (32 bits, they wrap); flags are ORed. */
    TCamChannels &operator+=(const TCamChannels &other);
    TCamChannels &operator-=(const TCamChannels &other);
};

/* The same in few bytes, and never more than the record has. */
std::string cam_channels_bytes(const TCamChannels &channels);

/* These bytes, for a history of a day. Copies share them; they never change. */
class TCamChannelsPacked {
public:
    TCamChannelsPacked() = default; // nothing is valid
    explicit TCamChannelsPacked(const TCamChannels &channels);

    TCamChannels unpacked() const;

private:
    std::shared_ptr<const char[]> m_bytes; // null: nothing is valid
};
