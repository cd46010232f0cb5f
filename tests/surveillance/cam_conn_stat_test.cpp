#include "surveillance/cam_conn_stat.h"

#include <gtest/gtest.h>

#include "fake_platform/fake_platform.h"

namespace {

T_CAM_CONN_STAT reading_of(const std::string &array, uint64_t now_ms = 0)
{
    const TJson data(json_tokener_parse(array.c_str()));
    return cam_conn_parse(data.get(), now_ms);
}

class CamConnStat : public testing::Test {
protected:
    ~CamConnStat() override
    {
        fake::stderr_of([this] { m_manager.reset(); });
    }
    /* One reading a minute, of one channel. */
    void feed(int channel, uint64_t failed, const char *more = "")
    {
        const std::string element = R"([{"id": )" + std::to_string(channel) + R"(, "conn_failed_count": )" +
                                    std::to_string(failed) + more + "}]";
        EXPECT_EQ(m_manager->add_sample("MINUTE", reading_of(element, 60000 * ++m_readings)), 0);
    }
    T_CAM_CONN_STAT total(int n) const { return m_manager->get_total("MINUTE", n); }

    std::unique_ptr<TCamConnStatManager> m_manager = std::make_unique<TCamConnStatManager>();
    uint64_t m_readings = 0;
};

TEST_F(CamConnStat, KeepsADayAndForgetsTheFlagsOfWhatLeftIt)
{
    /* The change is in the interval of its own reading and in the next one. */
    feed(7, 4);
    feed(7, 4, R"(, "info_changed": true)");
    for (uint64_t count = 1; count <= 1439; ++count)
        feed(0, 10 * count);
    EXPECT_EQ(m_manager->copy_history("MINUTE")->size(), 1440U);
    EXPECT_TRUE(total(1440).at().info_changed[7]);
    EXPECT_FALSE(total(1438).changed_flag || total(1438).at().valid[7]);
    for (const int n : {0, 1440, INT32_MAX}) {
        EXPECT_EQ(total(n).at().conn_failed_count[0], 14390U) << n;
        EXPECT_EQ(total(n).interval, 1440U * 60000) << n;
    }
    feed(0, 14400);
    feed(0, 14410);
    EXPECT_FALSE(total(0).changed_flag || total(0).at().valid[7] || total(0).at().info_changed[7]);
    EXPECT_EQ(total(0).at().conn_failed_count[0], 14400U); // the first ten have left
    EXPECT_EQ(total(3).at().conn_failed_count[0], 30U);
    EXPECT_EQ(m_manager->get_total("HOUR", 0).interval, 0U);
}

TEST_F(CamConnStat, MinutesThatDifferInTheirFlagsAloneAreTwo)
{
    for (const char *more : {"", "", R"(, "info_changed": true)", "", "", R"(, "info_changed": false)"})
        feed(7, 4, more);
    std::string changed;
    const auto history = m_manager->copy_history("MINUTE");
    for (const T_CAM_CONN_STAT &element : *history)
        changed += element.at().info_changed[7] ? "1" : "0";
    EXPECT_EQ(changed, "01100");
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
        {"id": 0, "conn_failed_count": 3}, {"id": 191, "conn_failed_count": 0},
        {"id": 5, "conn_failed_count": 99999999999999999999}, {"id": 4, "conn_failed_count": -2}])");
    EXPECT_EQ(stat.at().valid.count(), 4U);
    EXPECT_EQ(stat.at().conn_failed_count[0], 3U);
    EXPECT_TRUE(stat.at().valid[191]);
    EXPECT_EQ(stat.at().conn_failed_count[5], static_cast<uint32_t>(INT32_MAX));
    EXPECT_EQ(stat.at().conn_failed_count[4], UINT32_MAX - 1);
}

TEST(CamConnParseDeathTest, AChannelBeyondTheTablesEndsTheProcess)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(reading_of(R"([{"id": 192, "conn_failed_count": 1}])"), "channel id 192 is beyond the 192");
    const TJson data(json_tokener_parse(R"([{"id": 99999999999999999999}])"));
    EXPECT_DEATH(camera_table_parse(data.get()), "channel id 2147483647 is beyond");
}

} // namespace
