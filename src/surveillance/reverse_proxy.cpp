#include "surveillance/reverse_proxy.h"

#include <cstdint>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

#include "common/debug_log.h"
#include "common/trace.h"
#include "common/watcher.h"
#include "platform/host_path.h"
#include "platform/kestrel.h"
#include "platform/pal.h"
#include "platform/ssci.h"
#include "platform/time_stamp.h"
#include "surveillance/proxy_rules.h"

namespace {

constexpr const char *kSource = "reverse_proxy.cpp";
constexpr const char *kFunction = "rule_expired_detect"; // the name in all of its log lines
constexpr const char *kHost = "127.0.0.1";
constexpr int kPort = 10141;
constexpr const char *kPath = "/cfg/ReverseProxy";
constexpr int kTimeoutS = 5;
constexpr int kPeriodS = 300;
constexpr int32_t kBusRuleValue = 60; // the platform's, always this

/* What was deleted at the configuration service and remains to be removed
 * elsewhere. */
struct TDeletedRules {
    std::vector<std::string> files; // GUIDs
    t_vbus_reverse_proxy_info bus;
};

void log_transport_error(long long result)
{
    if (result != SSCI_TRANSPORT_ERROR)
        return;
    const int error = __ssci_errno();
    log_File_Debug(kLogReverseProxy, "[%s][%d] get ssci_strerror(%d)=[%s]", kFunction, 74, error, ssci_strerror(error));
}

/* Lists the rules. 0, or -1, logged. */
int list_rules(std::vector<TProxyRule> *rules)
{
    std::string text;
    const long long result = ssci_GET_request(kHost, kPort, kPath, {{"act", "list"}}, &text, kTimeoutS);
    if (result != 0) {
        log_File_Debug(kLogReverseProxy, "[%s][%d] get channel ret=[%d]", kFunction, 85, static_cast<int>(result));
        log_transport_error(result);
        return -1;
    }
    TProxyAnswer answer;
    std::string error;
    if (proxy_answer_parse(text, &answer, &error) != 0) {
        log_File_Debug(kLogReverseProxy, "[%s][%d] parse strResponse failed, error=[%s]", kFunction, 93, error.c_str());
        return -1;
    }
    if (answer.err_code != 0) {
        log_File_Debug(kLogReverseProxy, "[%s][%d] get proxy rule failed, res=%s", kFunction, 98, text.c_str());
        return -1;
    }
    if (answer.unreadable != 0)
        log_File_Debug(kLogReverseProxy, "[%s][%d] %d unreadable rules left alone", kFunction, 102, answer.unreadable);
    *rules = std::move(answer.rules);
    return 0;
}

/* Deletes a rule at the configuration service. 0, or -1, logged. */
int delete_rule(const TProxyRule &rule)
{
    const ssci_params params = {{"act", "delete"}, {"GUID", rule.guid}, {"rule_type", std::to_string(rule.rule_type)}};
    std::string text;
    const long long result = ssci_DELETE_request(kHost, kPort, kPath, params, &text, kTimeoutS);
    if (result != 0) {
        log_File_Debug(kLogReverseProxy, "[%s][%d] delete rule ret=[%d]", kFunction, 116, static_cast<int>(result));
        log_transport_error(result);
    }
    /* A missing answer counts as a refusal, as does any answer of a failed call. */
    TProxyAnswer answer;
    std::string error;
    (void)proxy_answer_parse(text, &answer, &error);
    if (result != 0 || answer.err_code != 0) {
        log_File_Debug(kLogReverseProxy, "[%s][%d] delete rule failed, response=[%s]", kFunction, 124, text.c_str());
        return -1;
    }
    return 0;
}

void remove_rule(const TProxyRule &rule, TDeletedRules *removed)
{
    if (delete_rule(rule) != 0)
        return;
    if (rule.rule_type == 0)
        removed->files.push_back(rule.guid);
    else if (rule.rule_type == 1)
        removed->bus.rules.push_back({rule.guid, rule.rule_type, rule.bs_id, kBusRuleValue});
    else
        log_File_Debug(kLogReverseProxy, "[%s][%d] unknown rule_type=%d", kFunction, 139, rule.rule_type);
}

void remove_files(const std::vector<std::string> &guids)
{
    for (const std::string &guid : guids) {
        const std::string path = "/etc/reverseproxy/extra/" + guid + ".conf";
        /* A rule must not be able to remove files elsewhere. */
        const int result = proxy_guid_is_name(guid) ? unlink(host_path(path).c_str()) : -1;
        if (result != 0)
            log_File_Debug(kLogReverseProxy, "[%s][%d] remove file [%s] failed, ret=[%d]", kFunction, 150, path.c_str(),
                           result);
    }
    const int result =
        kestrel_exec(0, 0, 0, "/usr/sbin/apache2", "-k", "graceful", "-f", "/etc/apache2/apache2.conf", nullptr);
    if (result != 0)
        log_File_Debug(kLogReverseProxy, "[%s][%d] kestrel_exec failed, ret=[%d]", kFunction, 157, result);
}

void remove_from_bus(const t_vbus_reverse_proxy_info &request)
{
    t_auth auth;
    if (const uint32_t result = PAL_auth_get_auth(auth); result != 0)
        log_File_Debug(kLogReverseProxy, "[%s][%d] get auth failed, ret=[%u]", kFunction, 166, result);
    t_vbus_reverse_proxy_info answer;
    if (const uint32_t result = PAL_vbus_update_reverse_proxy(request, answer); result != 0)
        log_File_Debug(kLogReverseProxy, "[%s][%d] PAL del bs rule failed, ret=%d, resp=%s", kFunction, 171,
                       static_cast<int>(result), answer.response.c_str());
}

/* Also after a stop request: the service does not list a deleted rule again, so the
 * rest of it would remain for good. Requests end by their time-outs; a reload of the
 * web server that hangs is cancelled after as long. */
void remove_elsewhere(TWorker *self, TDeletedRules *removed)
{
    const TDeletedRules now = std::exchange(*removed, {});
    if (!now.files.empty())
        remove_files(now.files);
    if (now.bus.rules.empty())
        return;
    const TMustComplete scope(self);
    remove_from_bus(now.bus);
}

/* One pass. *removed holds what an earlier pass deleted and did not remove elsewhere.
 * False if there was no list. */
bool remove_expired(TWorker *self, bool is_first, TDeletedRules *removed)
{
    remove_elsewhere(self, removed);
    std::vector<TProxyRule> rules;
    if (list_rules(&rules) != 0)
        return false;
    for (const TProxyRule &rule : rules) {
        if (self->terminated())
            break;
        if (is_first || proxy_remaining_ms(rule, current_time_stamp()) <= 0) {
            const TMustComplete scope(self);
            remove_rule(rule, removed);
        }
    }
    remove_elsewhere(self, removed);
    return true;
}

void rule_expired_detect(TWorker *self)
{
    log_File_Debug(kLogReverseProxy, "[%s][%d] start", kFunction, 199);
    bool first_done = false;
    TDeletedRules removed;
    self->run_passes([&] {
        const bool complete = remove_expired(self, !first_done, &removed);
        self->wait_s(kPeriodS);
        first_done = first_done || complete;
    });
    remove_elsewhere(self, &removed);
}

TWatcher g_watcher({"PROXY-worker", kFunction, rule_expired_detect}, {kLogReverseProxy, kSource, "start_threads", 214});

} // namespace

int reverse_proxy_init()
{
    trace(kSource, "reverse_proxy_init", 222);
    return g_watcher.start();
}

int reverse_proxy_uninit()
{
    trace(kSource, "reverse_proxy_uninit", 230);
    return g_watcher.stop();
}
