#include "platform/stock/storage/smartctl.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

using enum TSmartOutcome;

std::string document(const std::string &protocol, const std::string &rest)
{
    return R"({"smartctl":{"exit_status":0},"device":{"protocol":")" + protocol + "\"}," + rest + "}";
}

std::string attributes(const std::string &when_failed)
{
    return document("ATA", R"("ata_smart_attributes":{"table":[7,{"id":1,"when_failed":""},{"when_failed":")" +
                               when_failed + "\"}]}");
}

std::string worn_to(const std::string &percentage)
{
    return document("NVMe", R"("nvme_smart_health_information_log":{"power_on_hours":42,"percentage_used":)" +
                                percentage + "}");
}

const std::string kAta = document(
    "ATA",
    R"("smart_status":{"passed":true},"ata_smart_attributes":{"table":[{"id":9,"raw":{"value":987654}}]},"power_on_time":{"hours":20001,"minutes":12})");

TEST(SmartOutcome, ReadsEachFigureByItselfOrRejectsTheDocument)
{
    const std::pair<std::string, std::vector<std::string>> cases[] = {
        {"passed 20001 h", {kAta}}, // not the raw attribute
        {"failed 7 h", {document("SCSI", R"("smart_status":{"passed":false},"power_on_time":{"hours":7})")}},
        {"0 h", {document("SCSI", R"("power_on_time":{"hours":0})")}},
        {"no SMART",
         {attributes("past"), document("ATA", R"("smart_status":["passed"],"power_on_time":{"hours":"20001"})"),
          document("ATA", R"("power_on_time":{"hours":-5})")}},
        {"worn", {attributes("now")}},
        {"42 h", {worn_to("99"), worn_to("\"100\"")}},
        {"42 h worn", {worn_to("100"), worn_to("255")}},
        {"2147483647 h",
         {document("NVMe", R"("nvme_smart_health_information_log":{"power_on_hours":18446744073709551615})")}},
        {"unreadable",
         {document("Tape", R"("smart_status":{"passed":true})"), R"({"smart_status":{"passed":true}})",
          kAta.substr(0, kAta.size() - 1), kAta + "]", std::string(100000, '['), ""}}};
    for (const auto &[reading, texts] : cases) {
        for (const std::string &text : texts) {
            TSmartReading got;
            const TSmartOutcome outcome = smart_outcome(0, text, &got);
            std::string all = outcome == kNoSmart ? " no SMART" : outcome == kRead ? "" : " unreadable";
            if (got.passed.has_value())
                all += *got.passed ? " passed" : " failed";
            if (got.power_on_hours.has_value())
                all += " " + std::to_string(*got.power_on_hours) + " h";
            all += got.worn ? " worn" : "";
            EXPECT_EQ(all, " " + reading) << text.substr(0, 200);
        }
    }
}

TEST(SmartOutcome, DependsOnTheStatusAndTheDocument)
{
    const auto message = [](const char *text) {
        return R"({"smartctl":{"messages":[{"string":")" + std::string(text) +
               R"(","severity":"error"}]},"device":{"protocol":"ATA"}})";
    };
    const std::string empty = document("SCSI", R"("x":0)");
    const std::pair<TSmartOutcome, std::vector<std::pair<int, std::string>>> cases[] = {
        {kRead, {{0, kAta}, {0x04, kAta}, {0xf8, kAta}}}, // some command failed, but the figures are there
        {kAsleep, {{2, message("Device is in STANDBY mode, exit(2)")}, {2, ""}}},
        {kNoSmart,
         {{1, message("/dev/vda: Unable to detect device type")},
          {1, message("/dev/sdb: Unknown USB bridge [0x1234:0x5678 (0x100)]")},
          {1, message("/dev/sdb: Unsupported USB bridge [0x1234:0x5678 (0x100)]")},
          {4, message("SMART support is: Unavailable - device lacks SMART capability.")},
          {4, document("ATA", R"("smart_support":{"available":false})")},
          {0, empty}}},
        {kUnreadable,
         {{3, ""},
          {0, "{}"},
          {127, kAta},
          {128 + 9, kAta},
          {256, kAta},
          {4, empty},
          {2, empty}, // of SCSI: no answer
          {1, message("INVALID ARGUMENT TO -n")},
          {2, message("Read NVMe Identify Controller failed: NVME_IOCTL_ADMIN_CMD: Input/output error")},
          {4, document("ATA", R"("smart_support":{"available":true,"enabled":true})")}}}};
    for (const auto &[outcome, answers] : cases) {
        for (const auto &[status, text] : answers) {
            TSmartReading got;
            EXPECT_EQ(smart_outcome(status, text, &got), outcome) << status << text;
            EXPECT_EQ(got.power_on_hours.has_value(), outcome == kRead);
        }
    }
}

} // namespace
