#include "surveillance/cam_channels.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <iterator>
#include <utility>

namespace {

using TMask = std::bitset<kCameraChannels>;

/* The bytes: a mask of the valid channels, one of the changed, how many bytes a
 * count takes, how many counts are larger than that, the counts of the valid
 * channels in order, then channel and whole count of the larger ones.
 *
 * A mask begins with a byte: how many channels follow that are set; the same and
 * kAllBut, that are not set; or kMaskFollows. */
constexpr uint8_t kAllBut = 0x40, kMaskFollows = 0x80;
constexpr size_t kMaskBytes = sizeof(TMask);
static_assert(kMaskBytes == kCameraChannels / 8 && kMaskBytes < kAllBut && kCameraChannels <= UINT8_MAX);

constexpr size_t kLargeBytes = 1 + sizeof(uint32_t);
static_assert(std::endian::native == std::endian::little, "the first bytes of a count are its low ones");
constexpr size_t kWidths[] = {0, 1, 2, sizeof(uint32_t)};

/* Writes behind one another, within a buffer that has room for all of it. */
class TWriter {
public:
    explicit TWriter(uint8_t *begin) : m_begin(begin), m_end(begin) {}

    void put(const void *bytes, size_t count)
    {
        memcpy(m_end, bytes, count);
        m_end += count;
    }
    void put(size_t byte) { *m_end++ = static_cast<uint8_t>(byte); }
    void put_mask(const TMask &mask)
    {
        const bool mostly = mask.count() > kCameraChannels / 2;
        const TMask rare = mostly ? ~mask : mask;
        if (rare.count() >= kMaskBytes) {
            put(kMaskFollows);
            put(&mask, sizeof(mask));
            return;
        }
        put(rare.count() | (mostly ? kAllBut : 0));
        for (size_t i = 0; i < kCameraChannels; ++i) {
            if (rare[i])
                put(i);
        }
    }
    size_t size() const { return static_cast<size_t>(m_end - m_begin); }

private:
    uint8_t *m_begin, *m_end;
};

class TReader {
public:
    explicit TReader(const uint8_t *bytes) : m_next(bytes) {}

    void take(void *bytes, size_t count)
    {
        memcpy(bytes, m_next, count);
        m_next += count;
    }
    size_t take() { return *m_next++; }
    TMask take_mask()
    {
        const size_t code = take();
        TMask mask;
        if (code == kMaskFollows) {
            take(&mask, sizeof(mask));
            return mask;
        }
        for (size_t left = code & ~size_t{kAllBut}; left > 0; --left)
            mask.set(take());
        return (code & kAllBut) != 0 ? ~mask : mask;
    }

private:
    const uint8_t *m_next;
};

bool is_large(uint32_t count, size_t width)
{
    return width < sizeof(count) && (count >> (8 * width)) != 0;
}

/* The width that takes the fewest bytes. */
size_t width_of(const TCamChannels &channels)
{
    const size_t valid = channels.valid.count();
    const auto cost = [&](size_t width) {
        const auto &counts = channels.conn_failed_count;
        const auto large =
            std::count_if(counts.begin(), counts.end(), [width](uint32_t n) { return is_large(n, width); });
        return width * valid + kLargeBytes * static_cast<size_t>(large);
    };
    return *std::min_element(std::begin(kWidths), std::end(kWidths),
                             [&](size_t a, size_t b) { return cost(a) < cost(b); });
}

size_t pack(const TCamChannels &channels, uint8_t (&bytes)[TCamChannelsPacked::kMostBytes])
{
    TWriter out(bytes);
    out.put_mask(channels.valid);
    out.put_mask(channels.info_changed);
    const size_t width = width_of(channels);
    uint8_t large[kCameraChannels];
    size_t larges = 0;
    out.put(width);
    for (size_t i = 0; i < kCameraChannels; ++i) {
        if (channels.valid[i] && is_large(channels.conn_failed_count[i], width))
            large[larges++] = static_cast<uint8_t>(i);
    }
    out.put(larges);
    for (size_t i = 0; i < kCameraChannels; ++i) {
        if (channels.valid[i])
            out.put(&channels.conn_failed_count[i], width);
    }
    for (size_t i = 0; i < larges; ++i) {
        out.put(large[i]);
        out.put(&channels.conn_failed_count[large[i]], sizeof(uint32_t));
    }
    return out.size();
}

} // namespace

TCamChannels &TCamChannels::operator+=(const TCamChannels &other)
{
    for (size_t i = 0; i < kCameraChannels; ++i)
        conn_failed_count[i] += other.conn_failed_count[i];
    valid |= other.valid;
    info_changed |= other.info_changed;
    return *this;
}

TCamChannels &TCamChannels::operator-=(const TCamChannels &other)
{
    for (size_t i = 0; i < kCameraChannels; ++i)
        conn_failed_count[i] -= other.conn_failed_count[i];
    valid |= other.valid;
    info_changed |= other.info_changed;
    return *this;
}

TCamChannelsPacked::TCamChannelsPacked(const TCamChannels &channels)
{
    uint8_t bytes[kMostBytes];
    const size_t size = pack(channels, bytes);
    auto kept = std::make_shared_for_overwrite<uint8_t[]>(size);
    memcpy(kept.get(), bytes, size);
    m_bytes = std::move(kept);
}

TCamChannels TCamChannelsPacked::unpacked() const
{
    TCamChannels channels;
    if (m_bytes == nullptr)
        return channels;
    TReader in(m_bytes.get());
    channels.valid = in.take_mask();
    channels.info_changed = in.take_mask();
    const size_t width = in.take();
    const size_t larges = in.take();
    for (size_t i = 0; width > 0 && i < kCameraChannels; ++i) {
        if (channels.valid[i])
            in.take(&channels.conn_failed_count[i], width);
    }
    for (size_t i = 0; i < larges; ++i) {
        const size_t channel = in.take();
        in.take(&channels.conn_failed_count[channel], sizeof(uint32_t));
    }
    return channels;
}

size_t TCamChannelsPacked::packed_bytes(const TCamChannels &channels)
{
    uint8_t bytes[kMostBytes];
    return pack(channels, bytes);
}
