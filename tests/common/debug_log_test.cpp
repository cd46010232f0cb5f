#include "common/debug_log.h"

#include <sys/stat.h>

#include "base/folder.h"
#include "fake_platform/fake_platform.h"

namespace {

constexpr size_t kRotateAbove = 2095104;

class DebugLog : public fake::TPlatformTest {};

TEST_F(DebugLog, AppendsWhatIsFormattedAndNoMore)
{
    log_File_Debug(kLogMain, "%s=%d)", "a", 1);
    log_File_Debug(kLogMain, "b\n");
    EXPECT_EQ(log_text(kLogMain), "a=1)b\n");
    log_File_Debug(kLogCpu, "%s", std::string(3000, 'x').c_str());
    EXPECT_EQ(log_text(kLogCpu), std::string(2047, 'x'));
    for (const char *log : {kLogTimeChange, kLogCamConn, kLogServerName, kLogVolume, kLogSmart, kLogSysHealth,
                            kLogRecState, kLogReverseProxy, kLogCmv})
        log_File_Debug(log, "c");
    std::vector<std::string> names;
    EXPECT_EQ(folder_names(root() + "/Vdbglog/.velolog", &names), 0);
    EXPECT_EQ(names,
              (std::vector<std::string>{".velomond.log", ".velomond_camconn.log", ".velomond_cmv.log",
                                        ".velomond_cpu.log", ".velomond_recstate.log", ".velomond_reverse_proxy.log",
                                        ".velomond_servername.log", ".velomond_smart.log", ".velomond_syshealth.log",
                                        ".velomond_timechg.log", ".velomond_vol.log"}));
}

TEST_F(DebugLog, RotatesAboveItsLimitAndKeepsOneBackup)
{
    const std::string full(kRotateAbove, 'f');
    write_file(kLogMain, full);
    write_file(std::string(kLogMain) + "_bak", "older");
    log_File_Debug(kLogMain, "1"); // not above it yet
    EXPECT_EQ(log_text(kLogMain).size(), kRotateAbove + 1);
    log_File_Debug(kLogMain, "2");
    EXPECT_EQ(log_text(kLogMain), "2");
    EXPECT_EQ(read_file(std::string(kLogMain) + "_bak"), full + "1");
}

TEST_F(DebugLog, AFolderThatCannotBeMadeIsLoggedAndTheLineDropped)
{
    EXPECT_EQ(fake::stderr_of([] { log_File_Debug("/Vdbglog/missing/deeper/x.log", "line"); }),
              "[VeloMond_log] create log folder /Vdbglog/missing/deeper/x.log failed, ret=-1\n");
    EXPECT_EQ(fake::stderr_of([] { log_File_Debug("/Vdbglog/made/x.log", "line"); }), ""); // one level is made
    EXPECT_EQ(read_file("/Vdbglog/made/x.log"), "line");
    ASSERT_EQ(mkfifo((root() + kLogMain).c_str(), 0600), 0);
    log_File_Debug(kLogMain, "dropped"); // waits for no reader
}

} // namespace
