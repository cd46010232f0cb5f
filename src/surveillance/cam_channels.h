#pragma once

#include <array>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <memory>

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

/* The same in as few bytes as it takes, for a history of a day. Copies share the
 * bytes, which never change. */
class TCamChannelsPacked {
public:
    TCamChannelsPacked() = default; // nothing is valid
    explicit TCamChannelsPacked(const TCamChannels &channels);

    TCamChannels unpacked() const;

    /* At most kMostBytes, which is less than the record has. */
    static size_t packed_bytes(const TCamChannels &channels);
    static constexpr size_t kMostBytes = 800;

private:
    std::shared_ptr<const uint8_t[]> m_bytes; // null: nothing is valid
};
