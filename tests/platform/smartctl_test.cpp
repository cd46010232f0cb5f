#include "platform/stock/storage/smartctl.h"

#include <climits>
#include <gtest/gtest.h>
#include <string>

namespace {

using enum TSmartOutcome;

std::string document(const std::string &protocol, const char *rest)
{
    return R"({"smartctl":{"exit_status":0},"device":{"protocol":")" + protocol + "\"}," + rest + "}";
}

std::string attributes(const char *when_failed)
{
    return document("ATA", (R"("ata_smart_attributes":{"table":[7,{"id":1,"when_failed":""},{"id":5,"when_failed":")" +
                            std::string(when_failed) + "\"}]}")
                               .c_str());
}

std::string worn_to(const char *percentage)
{
    return document("NVMe", (std::string(R"("nvme_smart_health_information_log":{"percentage_used":)") + percentage +
                             R"(,"power_on_hours":42})")
                                .c_str());
}

const std::string kAta = document(
    "ATA",
    R"("smart_status":{"passed":true},"ata_smart_attributes":{"table":[{"id":9,"raw":{"value":987654}}]},"power_on_time":{"hours":20001,"minutes":12})");

TEST(SmartOutcome, ReadsEachFigureByItselfOrRejectsTheDocument)
{
    const struct {
        std::string text;
        TSmartOutcome outcome;
        int passed; // -1 for missing
        int hours;  // -1 for missing
        bool worn;
    } cases[] = {
        {kAta, kRead, 1, 20001, false}, // not the raw attribute
        {document("ATA", R"("smart_status":{"passed":false})"), kRead, 0, -1, false},
        {document("SCSI", R"("smart_status":{"passed":false},"power_on_time":{"hours":7})"), kRead, 0, 7, false},
        {document("SCSI", R"("power_on_time":{"hours":7})"), kRead, -1, 7, false},
        {attributes("past"), kNoSmart, -1, -1, false},
        {attributes("now"), kRead, -1, -1, true},
        {worn_to("99"), kRead, -1, 42, false},
        {worn_to("100"), kRead, -1, 42, true},
        {worn_to("255"), kRead, -1, 42, true},
        {worn_to("\"100\""), kRead, -1, 42, false},
        {document("NVMe", R"("nvme_smart_health_information_log":{"power_on_hours":18446744073709551615})"), kRead, -1,
         INT_MAX, false},
        {document("ATA", R"("smart_status":["passed"],"power_on_time":{"hours":"20001"})"), kNoSmart, -1, -1, false},
        {document("ATA", R"("power_on_time":{"hours":-5})"), kNoSmart, -1, -1, false},
        {document("Tape", R"("smart_status":{"passed":true})"), kUnreadable, -1, -1, false},
        {R"({"smart_status":{"passed":true}})", kUnreadable, -1, -1, false},
        {kAta.substr(0, kAta.size() - 1), kUnreadable, -1, -1, false},
        {kAta + "]", kUnreadable, -1, -1, false},
        {std::string(100000, '['), kUnreadable, -1, -1, false},
        {"", kUnreadable, -1, -1, false}};
    for (const auto &one : cases) {
        SCOPED_TRACE(one.text.substr(0, 200));
        TSmartReading got;
        EXPECT_EQ(smart_outcome(0, one.text, &got), one.outcome);
        EXPECT_EQ(got.passed.has_value() ? static_cast<int>(*got.passed) : -1, one.passed);
        EXPECT_EQ(got.power_on_hours.value_or(-1), one.hours);
        EXPECT_EQ(got.worn, one.worn);
    }
}

TEST(SmartOutcome, DependsOnTheStatusAndTheDocument)
{
    const auto message = [](const char *text) {
        return R"({"smartctl":{"messages":[{"string":")" + std::string(text) +
               R"(","severity":"error"}]},"device":{"protocol":"ATA"}})";
    };
    const std::string empty = document("SCSI", R"("x":0)");
    const struct {
        std::string text;
        int status;
        TSmartOutcome outcome;
    } cases[] = {
        {kAta, 0, kRead},
        {kAta, 0x04, kRead}, // some command failed, but the figures are there
        {kAta, 0xf8, kRead},
        {message("Device is in STANDBY mode, exit(2)"), 2, kAsleep},
        {"", 2, kAsleep},
        {"", 3, kUnreadable},
        {message("Read NVMe Identify Controller failed: NVME_IOCTL_ADMIN_CMD: Input/output error"), 2, kUnreadable},
        {empty, 2, kUnreadable}, // for a SCSI disk that does not answer
        {message("/dev/vda: Unable to detect device type"), 1, kNoSmart},
        {message("/dev/sdb: Unknown USB bridge [0x1234:0x5678 (0x100)]"), 1, kNoSmart},
        {message("INVALID ARGUMENT TO -n"), 1, kUnreadable},
        {document("ATA", R"("smart_support":{"available":false})"), 4, kNoSmart},
        {document("ATA", R"("smart_support":{"available":true,"enabled":true})"), 4, kUnreadable},
        {empty, 0, kNoSmart},
        {empty, 4, kUnreadable},
        {"{}", 0, kUnreadable},
        {kAta, 127, kUnreadable},
        {kAta, 128 + 9, kUnreadable},
        {kAta, 256, kUnreadable}};
    for (const auto &one : cases) {
        TSmartReading got;
        EXPECT_EQ(smart_outcome(one.status, one.text, &got), one.outcome) << one.status << one.text;
        EXPECT_EQ(got.power_on_hours.has_value(), one.outcome == kRead);
    }
}

} // namespace
