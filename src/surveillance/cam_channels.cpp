#include "surveillance/cam_channels.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <functional>
#include <utility>

namespace {

/* The bytes: masks of the channels that are not valid, of those that changed, and of
 * those that are valid and have not failed; how many bytes a count takes; the counts of
 * the channels that have failed, in order. Each mask has what is rare, and so is empty
 * as a rule.
 *
 * A mask is the number of its channels and each of them; from kMaskBytes on, that number
 * and a bit per channel. */
using TMask = std::bitset<kCameraChannels>;
constexpr size_t kMaskBytes = sizeof(TMask);
static_assert(kMaskBytes == kCameraChannels / 8 && kCameraChannels <= UINT8_MAX);

template <typename TValue> void put(std::string *bytes, const TValue &value, size_t width = sizeof(TValue))
{
    static_assert(std::endian::native == std::endian::little, "the first bytes of a count are its low ones");
    bytes->append(std::bit_cast<std::array<char, sizeof(TValue)>>(value).data(), width);
}

template <typename TValue> void take(const char **next, TValue *value, size_t width = sizeof(TValue))
{
    memcpy(value, *next, width);
    *next += width;
}

size_t take_byte(const char **next)
{
    return static_cast<uint8_t>(*(*next)++);
}

void put_mask(std::string *bytes, const TMask &mask)
{
    const size_t count = std::min(mask.count(), kMaskBytes);
    bytes->push_back(static_cast<char>(count));
    if (count == kMaskBytes) {
        put(bytes, mask);
        return;
    }
    for (size_t i = 0; i < kCameraChannels; ++i) {
        if (mask[i])
            bytes->push_back(static_cast<char>(i));
    }
}

TMask take_mask(const char **next)
{
    TMask mask;
    const size_t count = take_byte(next);
    if (count == kMaskBytes) {
        take(next, &mask);
        return mask;
    }
    for (size_t i = 0; i < count; ++i)
        mask.set(take_byte(next));
    return mask;
}

template <typename TOperation>
TCamChannels &combine(TCamChannels *channels, const TCamChannels &other, TOperation operation)
{
    for (size_t i = 0; i < kCameraChannels; ++i)
        channels->conn_failed_count[i] = operation(channels->conn_failed_count[i], other.conn_failed_count[i]);
    channels->valid |= other.valid;
    channels->info_changed |= other.info_changed;
    return *channels;
}

} // namespace

TCamChannels &TCamChannels::operator+=(const TCamChannels &other)
{
    return combine(this, other, std::plus());
}

TCamChannels &TCamChannels::operator-=(const TCamChannels &other)
{
    return combine(this, other, std::minus());
}

std::string cam_channels_bytes(const TCamChannels &channels)
{
    const auto &counts = channels.conn_failed_count;
    TMask failed;
    for (size_t i = 0; i < kCameraChannels; ++i)
        failed[i] = channels.valid[i] && counts[i] != 0;
    const size_t width = (std::bit_width(*std::ranges::max_element(counts)) + 7) / 8;
    std::string bytes;
    put_mask(&bytes, ~channels.valid);
    put_mask(&bytes, channels.info_changed);
    put_mask(&bytes, channels.valid & ~failed);
    bytes.push_back(static_cast<char>(width));
    for (size_t i = 0; i < kCameraChannels; ++i) {
        if (failed[i])
            put(&bytes, counts[i], width);
    }
    return bytes;
}

TCamChannelsPacked::TCamChannelsPacked(const TCamChannels &channels)
{
    const std::string bytes = cam_channels_bytes(channels);
    auto kept = std::make_unique_for_overwrite<char[]>(bytes.size()); // make_shared takes more for itself
    bytes.copy(kept.get(), bytes.size());
    m_bytes = std::move(kept);
}

TCamChannels TCamChannelsPacked::unpacked() const
{
    TCamChannels channels;
    const char *next = m_bytes.get();
    if (next == nullptr)
        return channels;
    channels.valid = ~take_mask(&next);
    channels.info_changed = take_mask(&next);
    const TMask failed = channels.valid & ~take_mask(&next);
    const size_t width = take_byte(&next);
    for (size_t i = 0; width > 0 && i < kCameraChannels; ++i) {
        if (failed[i])
            take(&next, &channels.conn_failed_count[i], width);
    }
    return channels;
}
