#include "housekeeping/cmv_watch.h"

#include <cstring>

#include "common/debug_log.h"
#include "fake_platform/fake_platform.h"

namespace {

class CmvWatch : public fake::TPlatformTest {};

[[gnu::noinline]] void dirty_the_stack()
{
    volatile char dirt[4096];
    for (volatile char &byte : dirt)
        byte = 'd';
}

TEST_F(CmvWatch, LogsADifferenceOnceAnHourPaddingAndTailsIncluded)
{
    const std::string line = "cmv_info was changed, [1,2,255,-5,one,two]->[1,2,255,-5,one,two]";
    const auto log_after_ms = [](uint64_t ms) {
        fake::advance_ms(ms);
        EXPECT_EQ(cmv_info_check(), 0);
        return log_text(kLogCmv);
    };
    fake::state()->cmv_result = -1;
    dirty_the_stack();
    EXPECT_EQ(log_after_ms(0), ""); // two records that cannot be read are equal
    fake::state()->cmv_result = 0;
    fake::state()->cmv_now = {1, 2, 255, 0, -5, "one", "two"};
    fake::state()->cmv_record = fake::state()->cmv_now;
    EXPECT_EQ(log_after_ms(3600000), "");
    fake::state()->cmv_record.text1[60] = 'x'; // behind the text's end
    EXPECT_EQ(log_after_ms(3599999), "");
    EXPECT_EQ(log_after_ms(1), line);
    EXPECT_EQ(log_after_ms(0), line);
    EXPECT_EQ(log_after_ms(3600000), line + line); // lasts, and is logged again
}

TEST(CmvText, IsCutAndStaysWithinItsFields)
{
    st_cmv_info info = {};
    memset(info.text1, 'a', sizeof(info.text1)); // no end
    EXPECT_EQ(cmv_info_text(info), "0,0,0,0," + std::string(55, 'a'));
}

} // namespace
