#include "service/notify_handler.h"

#include <climits>

#include "core/VeloMond.h"
#include "fake_platform/fake_platform.h"

namespace {

using fake::state;

class Notify : public fake::TPlatformTest {
protected:
    static std::string put(const std::string &body)
    {
        return fake::call_route("PUT", "/sysmonService/Notify", {}, body)->get_body();
    }
};

TEST_F(Notify, EachNoticeHasItsAnswerAndItsAction)
{
    state()->disk_list = [](int, t_storage_disk_list &) { return 1U; }; // updates answer -2
    struct {
        std::string body;
        int code, updates, not_supported; // the type in the log line; 0: no line
    } const cases[] = {
        {"", -1, 0, -1},
        {R"({"notice_reason":{"type":1033)", -1, 0, -1},
        {"{}", -2, 0, -1},
        {R"([{"notice_reason":{"type":1033}}])", -2, 0, -1},
        {R"({"notice_reason":null})", -2, 0, -1},
        {R"({"notice_reason":1033})", 0, 0, -1},
        {R"({"notice_reason":{"type":"1033"}})", 0, 0, -1},
        {R"({"notice_reason":{"type":99999999999999999999}})", 0, 0, INT_MAX},
        {R"({"notice_reason":{"type":4294968329}})", 0, 0, INT_MAX}, // 2^32 + 1033
        {R"({"notice_reason":{"type":1033,"action":0}})", -2, 1, 0},
        {R"({"notice_reason":{"type":1035}})", -2, 1, 0},
        {R"({"notice_reason":{"type":2048,"action":1}})", 0, 0, 0},
        {R"({"notice_reason":{"type":2048},"vbus_data":{"vbus_type":2,"vbus_action":2}})", 0, 0, 0},
        {R"({"notice_reason":{"type":2048},"vbus_data":{"vbus_type":8}})", -2, 1, 0},
        {R"({"notice_reason":{"type":5},"vbus_data":{"vbus_type":8}})", 0, 0, 5},
        {std::string(65536, '['), -1, 0, -1},
        {R"({"notice_reason":)" + std::string(30000, '[') + std::string(30000, ']') + "}", -1, 0, -1},
    };
    for (const auto &one : cases) {
        SCOPED_TRACE(one.body.substr(0, 100));
        const size_t updates = state()->notices.size();
        const std::string told = "VeloMond_RESTful:proc_notify_put(475) not support type=";
        std::string answer;
        EXPECT_EQ(fake::stderr_of([&] { answer = put(one.body); }),
                  one.not_supported != 0 ? told + std::to_string(one.not_supported) + "\n" : "");
        EXPECT_EQ(answer, R"({ "retCode": )" + std::to_string(one.code) + " }");
        EXPECT_EQ(state()->notices.size() - updates, static_cast<size_t>(one.updates));
    }
    EXPECT_EQ(state()->cond_signals, 0); // the main worker was not started
}

TEST_F(Notify, OneEventWithOneActionWakesTheMainWorker)
{
    VeloMond_start();
    const int before = state()->cond_signals;
    put(R"({"notice_reason":{"type":2048},"vbus_data":{"vbus_type":2,"vbus_action":1}})");
    EXPECT_EQ(state()->cond_signals, before);
    put(R"({"notice_reason":{"type":2048},"vbus_data":{"vbus_type":2,"vbus_action":2}})");
    EXPECT_EQ(state()->cond_signals, before + 1);
    VeloMond_stop();
}

TEST(NoticeParse, CutsTextsToTheirBuffers)
{
    TServiceNotice notice;
    EXPECT_EQ(notice_parse(R"({"notice_reason":{"type":2048}})", &notice), -3);
    EXPECT_EQ(notice.vbus_time + std::string(notice.vbus_extra_info), "");
    const std::string body = R"({"notice_reason":{"type":2048,"action":7},"vbus_data":{"vbus_time":")" +
                             std::string(40, 't') + R"(","vbus_extra_info":")" + std::string(300, 'x') + R"("}})";
    EXPECT_EQ(notice_parse(body, &notice), 0);
    EXPECT_EQ(notice.action, 7);
    EXPECT_EQ(notice.vbus_time, std::string(31, 't'));
    EXPECT_EQ(notice.vbus_extra_info, std::string(255, 'x'));
}

} // namespace
