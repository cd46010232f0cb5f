#include "surveillance/recording_stat.h"

#include <thread>

#include "platform/time_stamp.h"
#include "surveillance/watcher_test.h"

namespace {

constexpr const char *kYes = R"({"is_recording": true})";

class RecordingStat : public TWatcherTest {
protected:
    ~RecordingStat() override { recording_stat_uninit(); }

    static void start(const std::string &answer)
    {
        write_file("/var/.Vnvrd_start_ok", "");
        peers("GET", answer, "");
        recording_stat_init();
        fake::pass_waits(0);
    }
};

TEST_F(RecordingStat, ReportsAtFirstAndThenEachChangeOnceHoweverTheReportFared)
{
    start(R"({"is_recording": false})");
    fake::pass_waits(2);
    EXPECT_EQ(fake::state()->requests.size(), 4U); // reported once, asked three times
    EXPECT_EQ(told(), "");
    peers("GET", kYes, "", 0, 3);
    fake::pass_waits(2);
    EXPECT_EQ(sent("POST").size(), 2U);
    EXPECT_EQ(told(), "Recording state change \n");
    EXPECT_EQ(log_text(kLogRecState), "recording_stat.cpp:Recording_state_monitor_main (193), "
                                      "recording state ssci_PUT_request fail:3\n");
}

TEST_F(RecordingStat, QueriesTheLastMinuteWhileTheRecorderIsMarkedAsStarted)
{
    start(kYes);
    const std::vector<fake::TRequest> asked = fake::state()->requests;
    ASSERT_EQ(asked.size(), 2U);
    EXPECT_EQ(line_of(asked[0]), "GET localhost:10187/recStreamService/recording_state 5");
    EXPECT_EQ(asked[0].params, (ssci_params{{"start_time", "1699999940000"}, {"end_time", "1700000000000"}}));
    EXPECT_EQ(line_of(asked[1]), "POST localhost:10150/logs/dashboard/status/receiver/camera_recording 5");
    EXPECT_EQ(asked[1].body, R"({ "utc_time": 1700000000, "camera_recording_update": "normal" })");
    std::filesystem::remove(root() + "/var/.Vnvrd_start_ok");
    fake::pass_waits(3);
    EXPECT_EQ(fake::state()->requests.size(), 2U);
    EXPECT_EQ(current_time_stamp(), 1700000180000U);
}

TEST_F(RecordingStat, AFailedRequestMeansNotRecordingAndAnInvalidAnswerChangesNothing)
{
    start(kYes);
    std::string log;
    const auto pass = [&log](const std::string &answer, long long result, const char *fault, const char *code) {
        peers("GET", answer, "", result);
        fake::pass_waits(1);
        log += *fault != '\0' ? std::string("recording_stat.cpp:get_recording_state ") + fault + " fail\n" : "";
        log += std::string("recording_stat.cpp:Recording_state_monitor_main (179), get_recording_state faile (") +
               code + ")\n";
    };
    pass("", 0, "", "-1761017853");
    for (const char *answer : {"<html>", R"({"is_recording": tru)"})
        pass(answer, 0, "(124), json parser", "-1761017852");
    for (const char *answer : {R"({"is_recording": 1})", R"({"is_recording": "true"})", R"({"is_recording": null})",
                               "{}", R"([{"is_recording": true}])", "99999999999999999999999"})
        pass(answer, 0, "(138), json parser", "-1761017852");
    EXPECT_EQ(sent("POST").size(), 1U);
    pass(kYes, 2, "(109), ssci_GET_request", "-1761017854");
    EXPECT_EQ(sent("POST").back().body, R"({ "utc_time": 1700000000, "camera_recording_update": "error" })");
    EXPECT_EQ(log_text(kLogRecState), log);
}

TEST_F(RecordingStat, ARequestThatAStopCancelledIsNoFinding)
{
    write_file("/var/.Vnvrd_start_ok", "");
    fake::state()->request = [](const fake::TRequest & /*request*/, std::string * /*answer*/) {
        while (fake::state()->cond_signals == 0) // until the stop is asked for
            std::this_thread::yield();
        return SSCI_CANCELLED;
    };
    recording_stat_init();
    while (fake::state()->requests.empty())
        std::this_thread::yield();
    recording_stat_uninit();
    EXPECT_EQ(log_text(kLogRecState), "");
    EXPECT_EQ(sent("POST").size(), 0U);
    json_object *out = nullptr;
    EXPECT_EQ(recording_stat_info(&out), -1);
    const TJson report(out = json_object_new_object());
    EXPECT_EQ(recording_stat_info(&out), 0);
    EXPECT_EQ(json_text(out), R"({ "utc_time": 0, "camera_recording_update": "error" })");
}

} // namespace
