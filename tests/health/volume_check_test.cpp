#include "health/volume_check.h"

#include <new>
#include <tuple>
#include <utility>

#include "base/text.h"
#include "common/debug_log.h"
#include "common/system_volume.h"
#include "common/worker.h"
#include "fake_platform/fake_platform.h"
#include "health/volume_config.h"

namespace {

using enum TVolumeAlert;
constexpr int64_t kMb = 1048576;
const std::string kConf = "/tarn/etc/volume.conf|VOL_";

class VolumeCheck : public fake::TPlatformTest {
protected:
    VolumeCheck()
    {
        fake::on_wait([](vos_cond_t *, int seconds) {
            EXPECT_EQ(seconds, 10);
            EXPECT_EQ(fake::state()->ostrapro_disabled, 0);
        });
    }

    /* Outlives the tests: the platform keeps its flag for this thread. */
    static TWorker &worker()
    {
        static TWorker one;
        one.prepare();
        return one;
    }

    /* The roles have these volumes, and nothing was read yet. */
    void configure(const std::vector<std::string> &ids)
    {
        watch = {};
        g_system_volume_id = -1;
        fake::state()->ostrapro_disabled = 0;
        fake::state()->self_conf = {
            {"OSTRAPRO_SYS_VOL", ids[0]}, {"OSTRAPRO_IND_VOL", ids[1]}, {"OSTRAPRO_CS_VOL", ids[2]}};
    }

    /* Volume 3, named, as both variants see it; on ZFS it is section 7. */
    static void offer_volume(int64_t free_bytes)
    {
        fake::state()->usage = {{}, {3, INT64_MAX, free_bytes, 0, 0, {}}};
        fake::state()->ini = {{kConf + "3|volName", "Vol"}, {kConf + "7|volName", "Vol"}, {kConf + "7|zfsId", "3"}};
        fake::state()->volume_info = [free_bytes](int index, t_storage_disk_vol_info &out) {
            out.free_bytes = std::to_string(free_bytes);
            return index == 7 ? 0U : 0xbadU;
        };
    }

    /* How many events a look at the volumes sends. */
    size_t look(bool force = false)
    {
        const size_t before = fake::state()->programs.size();
        do_vol_check(&watch, force, &worker());
        return fake::state()->programs.size() - before;
    }

    TVolumeWatch watch;
};

TEST_F(VolumeCheck, EveryEventHasItsTextsInItsOrder)
{
    const std::tuple<size_t, int64_t, std::string, const char *, const char *, const char *> cases[] = {
        // role, free MB; log, level, code of the notice, sizes
        {0, 9728, "0x25010001|-1|||10|Vol|9.5 GB|", "WARN", "002004", "'9.5'|'$DEF_V002'|'10'|"},
        {0, 1023, "0x25020001|-1|||Ostra Surveillance|1|Vol|1023.0 MB|", "ERROR", "002007", "'1023'|'$DEF_V001'|'1'|"},
        {1, 10239, "0x25020002|-1|||Ostra Surveillance|10|Vol|10.0 GB|", "ERROR", "002008", "'10.0'|'$DEF_V002'|'10'|"},
        {1, 10240, "0x25010002|-1|||Vol|10.0 GB|32|", "WARN", "002005", "'10.0'|'$DEF_V002'|'32'|"},
        {2, 1, "0x25020003|-1|||Ostra Surveillance|10|Vol|1.0 MB|", "ERROR", "002009", "'1'|'$DEF_V001'|'10'|"},
        {2, 31000, "0x25010003|-1|||32|Vol|30.3 GB|", "WARN", "002006", "'30.3'|'$DEF_V002'|'32'|"}};
    std::string event;
    fake::state()->exec = [&event](const fake::argv_t &argv) {
        for (const std::string &text : argv)
            event += text + "|";
        EXPECT_EQ(fake::state()->nc_notify.size() + 1, fake::state()->programs.size()) << "the log tool comes first";
        return 255;
    };
    for (const char *marker : {"/tmp/plain", "/tarn/etc/TARN_ZFS"}) {
        write_file(marker, "");
        for (const auto &[role, free_mb, log, level, notify_code, sizes] : cases) {
            configure({role == 0 ? "3" : "0", role == 1 ? "3" : "", role == 2 ? "3" : "-4"});
            offer_volume(free_mb * kMb + kMb - 1);
            EXPECT_EQ(look(), 1U);
            EXPECT_EQ(std::exchange(event, ""), "/usr/bin/ostra_log_tool|2|" + log);
            EXPECT_EQ(fake::state()->nc_notify.back(),
                      text_format("'$LOG_LEVEL_%s'|'$LOG_TYPE_LOG_NOTIFY'|C002|%s|\"'Ostra Surveillance'\"|"
                                  "\"'5.2.0.3071'\"|---|'Vol'|%s'$DEF_V002'|-|-|",
                                  level, notify_code, sizes));
        }
    }
    EXPECT_EQ(log_text(kLogVolume), "");
}

TEST_F(VolumeCheck, AnEventIsSentOncePerVariantAndAgainWhereItThrew)
{
    configure({"3", "0", "0"});
    offer_volume(9728 * kMb);
    fake::state()->exec = [](const fake::argv_t &) -> int { throw std::bad_alloc(); };
    EXPECT_THROW((void)look(), std::bad_alloc);
    fake::state()->exec = nullptr;
    EXPECT_EQ(look(), 1U);
    EXPECT_EQ(look(), 0U);
    EXPECT_EQ(look(true), 1U);
    write_file("/tarn/etc/TARN_ZFS", "");
    EXPECT_EQ(look(), 1U);
    offer_volume(-kMb); // 32 bits without a sign: a volume with plenty of space
    EXPECT_EQ(look(), 0U);
    EXPECT_EQ(watch.volume_alert_state[0][0], kWarning);
    EXPECT_EQ(watch.volume_alert_state[0][1], kNone);
}

TEST_F(VolumeCheck, EachRoleIsWatchedByItselfAndAWarningDisablesNothing)
{
    configure({"1", "2", "3"});
    fake::state()->ini = {{kConf + "1|volName", "A"}, {kConf + "2|volName", "B"}, {kConf + "3|volName", "C"}};
    const auto names = [&](int64_t a_mb, int64_t b_mb, int64_t c_mb) {
        fake::state()->usage = {{1, INT64_MAX, a_mb * kMb, 0, 0, {}},
                                {2, INT64_MAX, b_mb * kMb, 0, 0, {}},
                                {3, INT64_MAX, c_mb * kMb, 0, 0, {}}};
        fake::state()->nc_notify.clear();
        look();
        std::string all;
        for (const auto &texts : fake::state()->nc_notify)
            all += texts.substr(texts.find("---") + 4, 3);
        return all;
    };
    EXPECT_EQ(names(10000, 30000, 30000), "'A''B''C'");
    EXPECT_EQ(names(10000, 30000, 30000), "");
    EXPECT_EQ(names(10000, 40000, 30000), "");
    EXPECT_EQ(names(10000, 30000, 30000), "'B'");
    EXPECT_EQ(fake::state()->ostrapro_disabled, 0);
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(names(10000, 30000, 1), "'C'");
    EXPECT_EQ(fake::state()->ostrapro_disabled, 1);
}

TEST_F(VolumeCheck, FailuresOfThePlatformAreLoggedAndLeaveTheStatesAlone)
{
    fake::state()->auth_result = 7;
    configure({"3", "0", "0"});
    offer_volume(0);
    fake::state()->usage_result = 0x1234abcd;
    watch.volume_alert_state[0][0] = watch.volume_alert_state[0][1] = kWarning;
    look(true);
    write_file("/tarn/etc/TARN_ZFS", "");
    fake::state()->usage_result = 0;
    look(true); // garbage for free space is an unknown
    EXPECT_EQ(watch.volume_alert_state[0][0], kWarning);
    EXPECT_EQ(watch.volume_alert_state[0][1], kNone);
    fake::state()->ini.erase(kConf + "7|zfsId");
    watch.volume_alert_state[0][1] = kError;
    look(true);
    EXPECT_EQ(watch.volume_alert_state[0][1], kError);
    const std::string auth = "(402), PAL_auth_get_auth failed,  ret=[00000007]";
    const std::string checked = "do_vol_check(689), PAL_auth_get_auth failed,  ret=[00000007]";
    EXPECT_EQ(log_text(kLogVolume), checked + "do_vol_check(697), PAL_resmon_get_disk_usage failed,  ret=[1234abcd]" +
                                        checked + "do_zfs_sys_vol_check" + auth + checked + "do_zfs_sys_vol_check" +
                                        auth + "do_zfs_sys_vol_check(411), PAL_storage_get_volume_info failed,  " +
                                        "ret=[00000bad] target_vol_id=[0]");
}

TEST_F(VolumeCheck, IdsAreReadUntilNoneIsUnread)
{
    configure({"4", "0", "-1"}); // a key that itself says so is read for ever
    look();
    EXPECT_EQ(g_system_volume_id, 4);
    fake::state()->self_conf = {{"OSTRAPRO_SYS_VOL", "3"}};
    offer_volume(kMb);
    fake::state()->ini.clear(); // no name either
    EXPECT_EQ(look(), 1U);
    EXPECT_EQ(fake::state()->programs.back().at(8), "DataVol3");
    fake::state()->self_conf = {{"OSTRAPRO_SYS_VOL", "4"}};
    EXPECT_EQ(look(), 1U);
    EXPECT_EQ(g_system_volume_id, 3);
    write_file("/tarn/etc/TARN_ZFS", "");
    fake::state()->volume_info = [](int, auto &out) { return fake::give(0U, "1048576", out.free_bytes); };
    EXPECT_EQ(look(), 1U);
    EXPECT_EQ(fake::state()->programs.back().at(8), "DataVol3");
    g_system_volume_id = 0; // as another watcher has read it
    EXPECT_EQ(look(), 0U);
}

/* The events of a volume whose free space goes through these figures: E, W or none. */
std::string walk(size_t role, bool force, const std::vector<int64_t> &free_mb)
{
    std::string events;
    TVolumeAlert state = kNone;
    for (const int64_t now_mb : free_mb)
        events += ".WE"[static_cast<int>(volume_rule_decide(kVolumeRoleTable[role], now_mb, force, &state))];
    return events;
}

TEST(VolumeRule, ThresholdsAtTheirBorders)
{
    EXPECT_EQ(walk(0, false, {10240, 10239, 1024, 1023, 1023, 1024, 1024, INT64_MAX, 1024}), ".W.EEW..W");
    EXPECT_EQ(walk(0, false, {1024, 0, 1024, 1, 0, -1, 1024}), "W.WE.EW");
    EXPECT_EQ(walk(0, true, {10239, 10239, 0, 10239, 10240, 1023}), "WW.W.E");
    for (const size_t role : {1U, 2U})
        EXPECT_EQ(walk(role, false, {32768, 32767, 10240, 10239, 10240, 32768, 10240}), ".W.EW.W") << role;
}

using VolumeConfig = fake::TPlatformTest;

TEST_F(VolumeConfig, AZfsVolumeIsTheFirstOfItsIdThatHasAName)
{
    char name[128] = "kept";
    int32_t index = -5;
    fake::state()->ini = {{kConf + "0|zfsId", "5\n"},       {kConf + "1|zfsId", "6"},
                          {kConf + "1|volName", "another"}, {kConf + "2|volName", "-"},
                          {kConf + "3|zfsId", "5\n"},       {kConf + "127|zfsId", "5\n"},
                          {kConf + "128|zfsId", "5\n"},     {kConf + "128|volName", "beyond the last"}};
    find_zfs_volume(5, name, &index);
    EXPECT_EQ(std::string(name) + std::to_string(index), "kept-5");
    fake::state()->ini[kConf + "127|volName"] = std::string(200, 'n');
    find_zfs_volume(5, name, &index);
    EXPECT_EQ(name + std::to_string(index), std::string(127, 'n') + "127");
    fake::state()->ini[kConf + "0|volName"] = "first";
    find_zfs_volume(5, name, &index);
    EXPECT_EQ(name + std::to_string(index), "first0");
}

TEST_F(VolumeConfig, AValueEndsBeforeItsLastLineFeed)
{
    std::string all;
    for (const char *held : {"", "GETCFG_FAILD", "one\ntwo\nrest", "whole"}) {
        std::string value = "kept";
        fake::state()->ini["f|s|k"] = held;
        all += (read_ini_value("f", "s", "k", &value) ? "+" : "-") + value;
    }
    EXPECT_EQ(all, "-kept-kept+one\ntwo+whole");
    fake::state()->ini_unreadable.insert("f");
    EXPECT_FALSE(read_ini_value("f", "s", "k", &all));
}

} // namespace
