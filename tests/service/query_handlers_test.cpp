#include "service/VeloMond_RESTful.h"

#include <bit>
#include <gtest/gtest.h>

#include "fake_platform/fake_platform.h"
#include "service/envelope.h"
#include "stats/sysstat_cpu.h"

namespace {

TEST(Envelope, CarriesDataOnlyWithSuccessAndAValue)
{
    const auto value = [] { return json_object_new_string("v"); };
    auto *const error_pointer = std::bit_cast<json_object *>(UINTPTR_MAX - 3); // as json-c once gave them
    EXPECT_EQ(envelope_text(0, value()), R"({ "return": 0, "data": "v" })");
    EXPECT_EQ(envelope_text(0, error_pointer), R"({ "return": 0 })");
    EXPECT_EQ(envelope_text(-4, value()), R"({ "return": -4 })"); // and lets go of the value
}

TEST(Service, TellsItsHealthAsFarAsTheBufferGoes)
{
    char buffer[32] = "";
    EXPECT_TRUE(service_health_check(buffer, 4));
    EXPECT_STREQ(buffer, "hea");
}

class Handlers : public fake::TPlatformTest {
protected:
    static std::string get(const char *route, const std::map<std::string, std::string> &arguments = {})
    {
        const auto reply = fake::call_route("GET", std::string("/sysmonService/") + route, arguments);
        if (!reply)
            return "no route";
        EXPECT_EQ(reply->content_type, "application/json");
        return reply->body;
    }
};

TEST_F(Handlers, CutArgumentsAsTheirBuffersDo)
{
    std::string told = fake::stderr_of([] {
        sysstat_cpu_init();
        EXPECT_EQ(get("cpu_info", {{"method", std::string(70, 'm')}, {"name", "n"}}), R"({ "return": 0 })");
        EXPECT_EQ(
            get("cpu_info", {{"method", "avg"}, {"name", "x"}, {"type", std::string(40, '0') + "-"}}).substr(0, 24),
            R"({ "return": 0, "data": {)");
        sysstat_cpu_uninit();
    });
    EXPECT_NE(told.find("method=[" + std::string(63, 'm') + "] not support\n"), std::string::npos);
}

TEST_F(Handlers, EachRouteAsksItsMonitorWithItsArguments)
{
    EXPECT_EQ(fake::route_paths(),
              (std::vector<std::string>{
                  "/sysmonService/status", "/sysmonService/cpu_info", "/sysmonService/mem_info",
                  "/sysmonService/network_info", "/sysmonService/disk_info", "/sysmonService/statistics_dump",
                  "/sysmonService/Notify", "/sysmonService/smart_info", "/sysmonService/syshealth_info",
                  "/sysmonService/recording_state", "/sysmonService/cam_conn", "/sysmonService/banip_mgr"}));
    const std::string told = fake::stderr_of([] {
        EXPECT_EQ(get("network_info", {{"method", "avg"}, {"name", "x"}}), R"({ "return": -4 })");
        EXPECT_EQ(get("network_info", {{"method", "avg"}, {"if_name", "x"}}), R"({ "return": -2 })");
        get("disk_info");
        EXPECT_EQ(get("cam_conn", {{"method", "total"}, {"count", "1"}}), R"({ "return": -2 })");
        EXPECT_EQ(get("recording_state"), R"({ "utc_time": 0, "camera_recording_update": "error" })");
    });
    EXPECT_NE(told.find("VeloMond_RESTful:proc_dsk_get(169)\n"), std::string::npos);
}

} // namespace
