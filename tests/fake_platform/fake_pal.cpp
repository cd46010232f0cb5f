#include "fake_platform/fake_platform.h"
#include "platform/interrupt.h"

using fake::give, fake::state, fake::TState;

namespace {

/* Runs one of the scripts by number; the output is only changed on 0. */
template <typename TOut> uint32_t run(std::function<uint32_t(int, TOut &)> TState::*member, int id, TOut &out)
{
    const auto script = state().state.*member;
    TOut answer;
    return give(script ? script(id, answer) : 1, answer, out);
}

} // namespace

uint32_t PAL_auth_get_auth(t_auth &auth)
{
    return give(state()->auth_result, {"admin", "token"}, auth);
}

uint32_t PAL_resmon_get_disk_usage(const t_auth & /*auth*/, const t_volume_info & /*in*/, t_volume_info &out)
{
    return give(state()->usage_result, state()->usage, out.usage);
}

uint32_t PAL_storage_get_volume_info(const t_auth & /*auth*/, const t_storage_disk_vol_info &in,
                                     t_storage_disk_vol_info &out)
{
    return run(&TState::volume_info, in.target_vol_id, out);
}

uint32_t PAL_storage_get_enclosure_list(const t_auth & /*auth*/, const t_storage_disk_input &in,
                                        t_storage_enclosure_info &out)
{
    state()->enclosures_asked.push_back(in.id);
    return give(state()->enclosure_result, state()->enclosure, out);
}

uint32_t PAL_storage_get_disk_list(const t_auth & /*auth*/, const t_storage_disk_input &in, t_storage_disk_list &out)
{
    return run(&TState::disk_list, in.id, out);
}

uint32_t PAL_storage_get_disk_smart_info(const t_auth & /*auth*/, const t_storage_disk_input &in,
                                         t_storage_smart_info &out)
{
    return run(&TState::smart, in.id, out);
}

uint32_t PAL_system_get_syssetting(const t_auth & /*auth*/, const t_system & /*request*/, t_system &reply)
{
    ++state()->syssetting_calls;
    return give(state()->syssetting_result, state()->syssetting, reply);
}

uint32_t PAL_mgr_syshealth_info(const t_auth *auth, t_syshealth_info *info, std::string *text)
{
    EXPECT_EQ(auth->token, "token");
    if (text != nullptr)
        give(state()->syshealth_result, state()->syshealth.text, *text);
    return give(state()->syshealth_result, state()->syshealth, *info);
}

uint32_t PAL_vbus_nc_notify(const char *level, const char *type, const char *category, const char *code, const char *a1,
                            const char *a2, const char *a3, const char *a4, const char *a5, const char *a6,
                            const char *a7, const char *a8, const char *a9, const char *a10)
{
    std::string texts;
    for (const char *text : {level, type, category, code, a1, a2, a3, a4, a5, a6, a7, a8, a9, a10})
        texts.append(text != nullptr ? text : "-").append("|");
    state()->nc_notify.push_back(texts);
    return 0;
}

uint32_t PAL_vbus_update_reverse_proxy(const t_vbus_reverse_proxy_info &request, t_vbus_reverse_proxy_info &answer)
{
    if (platform_interrupted())
        return 3;
    state()->proxy_requests.push_back(request);
    answer.response = state()->proxy_answer.response;
    return give(state()->proxy_result, state()->proxy_answer, answer);
}

uint32_t PAL_vbus_ostrapro_disable()
{
    if (platform_interrupted())
        return 3;
    ++state()->ostrapro_disabled;
    return 0;
}
