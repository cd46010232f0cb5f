#include "surveillance/cam_conn_stat.h"

#include <random>
#include <vector>

#include "fake_platform/fake_platform.h"

namespace {

T_CAM_CONN_STAT reading_of(const std::string &array)
{
    const TJson data(json_tokener_parse(array.c_str()));
    return cam_conn_parse(data.get(), 0);
}

/* Readings of any kind, all channels' or a few's, wild or quiet, which differ in the flags alone. */
class TReadings {
public:
    explicit TReadings(uint32_t seed) : m_any(seed) {}

    TCamChannels next()
    {
        if (one_of(40))
            m_now = {};
        const uint32_t range = one_of(4) ? 1 : 1U << below(32), share = 1 + below(30);
        for (size_t i = 0; i < kCameraChannels; ++i) {
            if (range > 1 && one_of(share) && !one_of(9))
                m_now.valid.flip(i);
            m_now.info_changed[i] = one_of(share * 7);
            m_now.conn_failed_count[i] = m_now.valid[i] ? m_now.conn_failed_count[i] + below(range) : 0;
        }
        return m_now;
    }
    bool one_of(uint32_t count) { return below(count) == 0; }

private:
    uint32_t below(uint32_t end) { return static_cast<uint32_t>(m_any() % end); }

    std::mt19937 m_any;
    TCamChannels m_now;
};

using CamConnStat = fake::TQuietTest;

TEST_F(CamConnStat, KeepsADayAndAnswersWhatTheUnpackedFormWould)
{
    TCamConnStatManager manager;
    TReadings readings(17);
    std::vector<TCamChannels> plain;
    const auto at_ms = [](size_t i) { return 60000 * (i + 1) + i % 7; };
    for (size_t last = 0; last < 1600; ++last) {
        plain.push_back(readings.next());
        manager.add_sample("MINUTE", {TCamChannelsPacked(plain[last]), at_ms(last), at_ms(last)});
        const bool day = last % 250 == 150 || last == 1440; // the long sums, which take their time
        for (const int n : {1 + static_cast<int>(last % 4), day ? 0 : 1, day ? INT32_MAX : 1, day ? 1440 : 1}) {
            const size_t most = std::min<size_t>(last, 1440); // the intervals there are
            const size_t first = last - (n == 0 ? most : std::min(most, static_cast<size_t>(n)));
            TCamChannels sum = plain[last];
            for (size_t c = 0; c < kCameraChannels; ++c)
                sum.conn_failed_count[c] -= plain[first].conn_failed_count[c];
            for (size_t i = first; i < last; ++i) {
                sum.valid |= plain[i].valid;
                sum.info_changed |= plain[i].info_changed;
            }
            const T_CAM_CONN_STAT got = manager.get_total("MINUTE", n);
            ASSERT_EQ(got.at(), last == 0 ? TCamChannels() : sum) << last << " " << n;
            ASSERT_EQ(got.interval, at_ms(last) - at_ms(first));
            ASSERT_EQ(got.timestamp, last == 0 ? 0 : at_ms(last));
        }
    }
    EXPECT_EQ(manager.copy_history("MINUTE")->size(), 1440U);
    EXPECT_EQ(manager.get_total("HOUR", 0).interval, 0U);
}

TEST(CamChannels, TakeFewBytesAndNeverMoreThanTheRecord)
{
    /* A day in 400 KiB: its records, and per minute the bytes and what the heap adds to
     * them: a block of 32 that counts their users, and 8 before sizes of 16. */
    constexpr size_t kUsers = 32, kHeader = 8, kStep = 16, kMinutes = 1440, kDayBytes = size_t{400} * 1024;
    constexpr size_t kMostUsual = (kDayBytes / kMinutes - sizeof(T_CAM_CONN_STAT) - kUsers) / kStep * kStep - kHeader;
    TReadings readings(23);
    for (int minute = 0; minute < 1000; ++minute) {
        TCamChannels channels = readings.next();
        ASSERT_LT(cam_channels_bytes(channels).size(), sizeof(TCamChannels));
        channels.info_changed.reset(); // usually
        for (uint32_t &count : channels.conn_failed_count)
            count %= 256;
        ASSERT_LE(cam_channels_bytes(channels).size(), kMostUsual);
    }
    TCamChannels odd; // channel 0 is not there
    odd.valid.set(1);
    odd.conn_failed_count = {7, 8};
    EXPECT_EQ(TCamChannelsPacked(odd).unpacked().conn_failed_count, (decltype(odd.conn_failed_count){0, 8}));
}

TEST(CamConnParse, TakesWholeNumbersOfKnownChannelsOnly)
{
    for (const char *element :
         {R"("id": 5, "conn_failed_count": -1)", R"("id": -1, "conn_failed_count": 3)",
          R"("id": -2, "conn_failed_count": 3)", R"("id": -99999999999999999999, "conn_failed_count": 3)", R"("id": 5)",
          R"("id": 500)", R"("id": "5", "conn_failed_count": 3)", R"("id": 5, "conn_failed_count": "3")",
          R"("id": 5.0, "conn_failed_count": 3)", R"("id": 5, "conn_failed_count": null)"})
        EXPECT_TRUE(reading_of(std::string("[{") + element + "}]").at().valid.none()) << element;
    const T_CAM_CONN_STAT stat = reading_of(R"([null, 7, [{"id": 6, "conn_failed_count": 3}],
        {"id": 0, "conn_failed_count": 3, "info_changed": false}, {"id": 191, "conn_failed_count": 0},
        {"id": 5, "conn_failed_count": 99999999999999999999}, {"id": 4, "conn_failed_count": -2}])");
    EXPECT_EQ(stat.at().valid, decltype(TCamChannels::valid)(0x31).set(191));
    EXPECT_TRUE(stat.at().info_changed.none());
    EXPECT_EQ(stat.at().conn_failed_count,
              (decltype(TCamChannels::conn_failed_count){3, 0, 0, 0, UINT32_MAX - 1, INT32_MAX}));
}

TEST(CamConnParseDeathTest, AChannelBeyondTheTablesEndsTheProcess)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(reading_of(R"([{"id": 192, "conn_failed_count": 1}])"),
                 "^channel id 192 is beyond the 192 channels there are\n");
    const TJson data(json_tokener_parse(R"([{"id": 99999999999999999999}])"));
    EXPECT_DEATH(camera_table_parse(data.get()), "channel id 2147483647 is beyond");
}

} // namespace
