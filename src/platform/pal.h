#pragma once

#include <cerrno>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

/* The platform access layer: the appliance's hardware and settings. Every call returns 0 on success; on failure the
 * output is unchanged. Any thread may call. */

/* A call was given up because the calling thread was asked to stop (interrupt.h): no
 * finding about what it was asked for. */
constexpr uint32_t PAL_CANCELLED = ECANCELED;

/* Credentials that the other calls want to see. */
struct t_auth {
    std::string user;
    std::string token;
};
uint32_t PAL_auth_get_auth(t_auth &auth);

/* --- Storage -------------------------------------------------------------- */

/* Space of one mounted volume, in bytes. */
struct t_volume_usage {
    int32_t volume_id = 0;
    int64_t size_bytes = 0;
    int64_t free_bytes = 0; // what root can still use
    int64_t used_bytes = 0;
    int64_t reserved_bytes = 0;     // the part of it that only root can use
    std::vector<std::string> texts; // volume name, mount point
};
struct t_volume_info {
    std::vector<t_volume_usage> usage;
};
uint32_t PAL_resmon_get_disk_usage(const t_auth &auth, const t_volume_info &in, t_volume_info &out);

struct t_storage_disk_vol_info {
    int32_t status = 0; // 0 ready, 1 rebuilding or reshaping, -1 not mounted, -2 degraded or failed
    int32_t target_vol_id = 0;
    std::string free_bytes; // decimal text
};
uint32_t PAL_storage_get_volume_info(const t_auth &auth, const t_storage_disk_vol_info &in,
                                     t_storage_disk_vol_info &out);

/* Names a volume, an enclosure or a disk by number, as the call wants it. */
struct t_storage_disk_input {
    int32_t id = 0;
};
struct t_storage_enclosure_info {
    int32_t enclosure_count = 0;
    int32_t disk_count = 0; // number of disk numbers to query, counted from 0
};
uint32_t PAL_storage_get_enclosure_list(const t_auth &auth, const t_storage_disk_input &in,
                                        t_storage_enclosure_info &out);

struct t_storage_disk {
    std::string name;     // "disk_" and the number in two hexadecimal digits
    std::string label;    // "<model> (<device node>)"
    std::string presence; // empty: an empty slot
    int32_t status = 0;   // 0 good, 1 warning, 2 error, negative: no usable disk
};
struct t_storage_disk_list {
    std::vector<t_storage_disk> disks;
};
/* The disks of enclosure in.id (0 is the host). */
uint32_t PAL_storage_get_disk_list(const t_auth &auth, const t_storage_disk_input &in, t_storage_disk_list &out);

struct t_storage_smart_info {
    int32_t alert = 0; // 1: the disk itself expects to fail
    int32_t power_on_hours = 0;
};
/* SMART of disk number in.id. A number without a disk and a disk without SMART are not failures: the record is
 * unchanged, as is each figure that the disk does not provide. For a sleeping disk it is the last reading. */
uint32_t PAL_storage_get_disk_smart_info(const t_auth &auth, const t_storage_disk_input &in, t_storage_smart_info &out);

/* --- System --------------------------------------------------------------- */

struct t_system_time {
    int32_t timezone = 0;
};
struct t_system_time_ntp {
    std::string server;
};
struct t_system {
    std::string server_name;
    t_system_time time;
    t_system_time_ntp ntp;
};
/* The server's name; fails when the appliance's record of it cannot be read. */
uint32_t PAL_system_get_syssetting(const t_auth &auth, const t_system &request, t_system &reply);

struct t_syshealth_info {
    std::string text;                                      // "good" or the fault
    std::vector<std::pair<std::string, std::string>> fans; // name, status code (decimal; "9" failed)
};
uint32_t PAL_mgr_syshealth_info(const t_auth *auth, t_syshealth_info *info, std::string *text);

/* --- Message bus ----------------------------------------------------------- */

/* One notification with fourteen texts: level, type, category, code and up to ten arguments, null where unused. */
uint32_t PAL_vbus_nc_notify(const char *level, const char *type, const char *category, const char *code, const char *a1,
                            const char *a2, const char *a3, const char *a4, const char *a5, const char *a6,
                            const char *a7, const char *a8, const char *a9, const char *a10);

struct t_vbus_reverse_proxy_rule_info {
    std::string guid;
    int32_t rule_type = 0;
    std::string bs_id;
    int32_t value = 0;
};
struct t_vbus_reverse_proxy_info {
    std::vector<t_vbus_reverse_proxy_rule_info> rules;
    std::string response; // filled in the reply, on failure too
};
uint32_t PAL_vbus_update_reverse_proxy(const t_vbus_reverse_proxy_info &request, t_vbus_reverse_proxy_info &answer);

/* Disables the surveillance service. */
uint32_t PAL_vbus_ostrapro_disable();
