#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <filesystem>
#include <tuple>

#include "fake_platform/fake_platform.h"
#include "platform/config_readers.h"
#include "platform/diag.h"
#include "platform/host_path.h"
#include "platform/kestrel.h"
#include "platform/system_info.h"

using fake::state;

namespace {

fake::argv_t record_program(const char *program, va_list texts)
{
    fake::argv_t argv{program};
    for (const char *text = va_arg(texts, const char *); text != nullptr; text = va_arg(texts, const char *))
        argv.emplace_back(text);
    state()->programs.push_back(argv);
    return argv;
}

thread_local int t_time_limit_s = 60;

bool find(const std::map<std::string, std::string> &map, const std::string &key, std::string &out)
{
    const auto found = map.find(key);
    if (found != map.end())
        out = found->second;
    return found != map.end();
}

} // namespace

TToolTimeLimit::TToolTimeLimit(int seconds)
{
    t_time_limit_s = seconds;
}

TToolTimeLimit::~TToolTimeLimit()
{
    t_time_limit_s = 60;
}

int fake::time_limit_s()
{
    return t_time_limit_s;
}

int kestrel_exec(int reserved1, int reserved2, int reserved3, const char *program, ...)
{
    EXPECT_EQ(std::tuple(reserved1, reserved2, reserved3), std::tuple(0, 0, 0));
    va_list texts;
    va_start(texts, program);
    const fake::argv_t argv = record_program(program, texts);
    va_end(texts);
    const auto script = state()->exec;
    return script ? script(argv) : 0;
}

FILE *kestrel_popen(const char *program, ...)
{
    va_list texts;
    va_start(texts, program);
    const fake::argv_t argv = record_program(program, texts);
    va_end(texts);
    const auto script = state()->popen;
    const std::optional<std::string> text = script ? script(argv) : std::nullopt;
    FILE *stream = text ? fmemopen(nullptr, text->size() + 1, "w+") : nullptr;
    if (stream == nullptr) {
        errno = ENOENT;
        return nullptr;
    }
    fwrite(text->data(), 1, text->size(), stream);
    rewind(stream);
    ++state()->streams_open;
    return stream;
}

int kestrel_pclose(FILE *stream)
{
    --state()->streams_open;
    return fclose(stream);
}

int diag_com_install_siganl_handler(int /*signal*/, const char * /*program*/, int /*option*/)
{
    return 0;
}

void log_Debug(const char *format, ...)
{
    char text[2048];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof(text), format, args);
    va_end(args);
    const std::string line(text);
    fputs((line.ends_with('\n') ? line : line + "\n").c_str(), stderr);
}

long long logtool_send_surveillance_log(const log_info &info)
{
    state()->surveillance_log.push_back(info);
    return state()->surveillance_log_result;
}

int getSelfConf(const char *key, const char *default_value, std::string &out, int flag)
{
    EXPECT_EQ(flag, 0);
    if (find(state()->self_conf, key, out))
        return 0;
    out = default_value != nullptr ? default_value : "";
    return -1;
}

int inihandler_getcfg(const char *file, const char *section, const char *key, const char *default_value,
                      std::string &out, int option, bool flag)
{
    EXPECT_TRUE(option == 0 && !flag);
    const bool readable = !state()->ini_unreadable.contains(file);
    if (!readable || !find(state()->ini, std::string(file) + "|" + section + "|" + key, out))
        out = default_value != nullptr ? default_value : "";
    return readable ? 0 : -1;
}

int __nvrcfg_get_key_value(const char *section, const char *key, std::string &out, int *err_no)
{
    const std::string name = std::string(section) + "|" + key;
    const auto failure = state()->nvr_errors.find(name);
    if (failure != state()->nvr_errors.end())
        *err_no = failure->second;
    else if (state()->nvr_error != 0)
        *err_no = state()->nvr_error;
    else if (find(state()->nvr, name, out))
        return 0;
    else
        *err_no = NVRCFG_ERR_ABSENT;
    return -1;
}

int COstraStorage::create_storage_setting()
{
    m_open = true;
    ++state()->ostra_open;
    return 0;
}

int COstraStorage::get_storage_flag(int *flag)
{
    const auto found = state()->storage_flag;
    if (!m_open || !found)
        return -1;
    *flag = *found;
    return 0;
}

void COstraStorage::destroy_storage_setting()
{
    if (m_open)
        --state()->ostra_open;
    m_open = false;
}

int CDBSize::init()
{
    return 0;
}

int CDBSize::check_database_size(db_size_m &size)
{
    size = state()->db_size;
    return 0;
}

int get_cmv_info(st_cmv_info &info)
{
    return fake::give(state()->cmv_result, state()->cmv_now, info);
}

int check_cmv_info(st_cmv_info &info)
{
    return fake::give(state()->cmv_result, state()->cmv_record, info);
}

int velomond_shm_get(t_velomond_shm *record)
{
    ++state()->shm_gets;
    return fake::give(state()->shm_get_result, state()->shm, *record);
}

int velomond_shm_set(const t_velomond_shm *record)
{
    ++state()->shm_sets;
    state()->shm = *record;
    return 0;
}

int get_platform_system(uint32_t *type)
{
    *type = state()->platform_system;
    return 0;
}

bool check_system_init(const char *path)
{
    return std::filesystem::exists(host_path(path));
}
