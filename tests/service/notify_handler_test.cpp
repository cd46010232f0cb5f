#include "service/notify_handler.h"

#include "core/VeloMond.h"
#include "fake_platform/fake_platform.h"
#include "service/handlers.h"

namespace {

using fake::state;

class Notify : public fake::TPlatformTest {
protected:
    void SetUp() override
    {
        TPlatformTest::SetUp();
        testing::internal::CaptureStderr();
        VeloMond_start();
        testing::internal::GetCapturedStderr();
        state()->disk_list = [](int, t_storage_disk_list &) { return 1U; }; // updates answer -2
    }
    void TearDown() override
    {
        testing::internal::CaptureStderr();
        VeloMond_stop();
        testing::internal::GetCapturedStderr();
        TPlatformTest::TearDown();
    }
    static std::string put(const std::string &body)
    {
        const auto reply = fake::call_route("PUT", "/test/Notify", {}, body);
        EXPECT_EQ(reply->status, 200);
        EXPECT_EQ(reply->content_type, "application/json");
        return reply->body;
    }
    static std::string not_supported(const char *type)
    {
        return std::string("VeloMond_RESTful:proc_notify_put(475) not support type=") + type + "\n";
    }

private:
    common_http_resource m_route{"/test/Notify", nullptr, proc_notify_put};
};

TEST_F(Notify, EachNoticeHasItsAnswerAndItsAction)
{
    struct {
        std::string body;
        int code, updates, wakes;
        std::string told;
    } const cases[] = {
        {"", -1, 0, 0, not_supported("-1")},
        {"no json", -1, 0, 0, not_supported("-1")},
        {R"({"notice_reason":{"type":1033)", -1, 0, 0, not_supported("-1")},
        {"null", -1, 0, 0, not_supported("-1")},
        {"{}", -2, 0, 0, not_supported("-1")},
        {R"([{"notice_reason":{"type":1033}}])", -2, 0, 0, not_supported("-1")},
        {"\"notice_reason\"", -2, 0, 0, not_supported("-1")},
        {R"({"notice_reason":null})", -2, 0, 0, not_supported("-1")},
        {R"({"notice_reason":1033})", 0, 0, 0, not_supported("-1")},
        {R"({"notice_reason":{"type":"1033"}})", 0, 0, 0, not_supported("-1")},
        {R"({"notice_reason":{"type":5}})", 0, 0, 0, not_supported("5")},
        {R"({"notice_reason":{"type":99999999999999999999}})", 0, 0, 0, not_supported("2147483647")},
        {R"({"notice_reason":{"type":4294968329}})", 0, 0, 0, not_supported("2147483647")}, // 2^32 + 1033
        {R"({"notice_reason":{"type":1033,"action":0}})", -2, 1, 0, ""},
        {R"({"notice_reason":{"type":1035}})", -2, 1, 0, ""},
        {R"({"notice_reason":{"type":2048,"action":1}})", 0, 0, 0, ""},
        {R"({"notice_reason":{"type":2048},"vbus_data":[]})", 0, 0, 0, ""},
        {R"({"notice_reason":{"type":2048},"vbus_data":{"vbus_type":2,"vbus_action":2}})", 0, 0, 1, ""},
        {R"({"notice_reason":{"type":2048},"vbus_data":{"vbus_type":2,"vbus_action":1}})", 0, 0, 0, ""},
        {R"({"notice_reason":{"type":2048},"vbus_data":{"vbus_type":8}})", -2, 1, 0, ""},
        {R"({"notice_reason":{"type":2048},"vbus_data":{"vbus_type":3,"vbus_action":2}})", 0, 0, 0, ""},
        {R"({"notice_reason":{"type":5},"vbus_data":{"vbus_type":8}})", 0, 0, 0, not_supported("5")},
        {std::string(65536, '['), -1, 0, 0, not_supported("-1")},
        {R"({"notice_reason":)" + std::string(30000, '[') + std::string(30000, ']') + "}", -1, 0, 0,
         not_supported("-1")},
    };
    for (const auto &one : cases) {
        SCOPED_TRACE(one.body.substr(0, 100));
        const size_t updates = state()->notices.size();
        const int wakes = state()->cond_signals;
        std::string answer;
        EXPECT_EQ(fake::stderr_of([&] { answer = put(one.body); }), one.told);
        EXPECT_EQ(answer, R"({ "retCode": )" + std::to_string(one.code) + " }");
        EXPECT_EQ(state()->notices.size() - updates, static_cast<size_t>(one.updates));
        EXPECT_EQ(state()->cond_signals - wakes, one.wakes);
    }
}

TEST_F(Notify, TextsOfAnEventAreCutToTheirBuffers)
{
    T_SERVICE_NOTICE notice;
    const std::string body = R"({"notice_reason":{"type":2048},"vbus_data":{"vbus_time":")" + std::string(40, 't') +
                             R"(","vbus_extra_info":")" + std::string(300, 'x') + R"("}})";
    EXPECT_EQ(notice_parse(body, &notice), 0);
    EXPECT_EQ(notice.vbus_time, std::string(31, 't'));
    EXPECT_EQ(notice.vbus_extra_info, std::string(255, 'x'));
    EXPECT_EQ(notice.action, -1);

    T_SERVICE_NOTICE bare;
    EXPECT_EQ(notice_parse(R"({"notice_reason":{"type":2048,"action":1}})", &bare), -3);
    EXPECT_EQ(bare.action, 1);
}

TEST(NotifyWakeUp, HasNothingToWakeBeforeTheStart)
{
    const int wakes = state()->cond_signals;
    EXPECT_EQ(vbus_notice_dispatch(2, 2, ""), 0);
    EXPECT_EQ(state()->cond_signals, wakes);
}

} // namespace
