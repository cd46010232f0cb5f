#include "service/notify_handler.h"

#include "common/trace.h"
#include "core/VeloMond.h"
#include "platform/comutil.h"
#include "service/envelope.h"
#include "service/handlers.h"
#include "stats/disk_flag.h"

namespace {

/* Kinds of notices. */
constexpr int kStorageChanged = 1033;
constexpr int kDisksChanged = 1035;
constexpr int kMessageBus = 2048;

/* Kinds of message-bus events, and the one action of the first. */
constexpr int kVbusMonitor = 2;
constexpr int kVbusMonitorWake = 2;
constexpr int kVbusDisks = 8;

} // namespace

int notice_parse(const std::string &body, TServiceNotice *notice)
{
    const TJson parsed = json_parse(body); // a value other than an object has no members
    if (parsed == nullptr)
        return -1;
    json_object *const reason = json_object_object_get(parsed.get(), "notice_reason");
    if (reason == nullptr)
        return -2;
    (void)comutil_get_json_int_by_key(reason, "type", &notice->type);
    (void)comutil_get_json_int_by_key(reason, "action", &notice->action);
    if (notice->type != kMessageBus)
        return 0;
    json_object *const event = json_object_object_get(parsed.get(), "vbus_data");
    if (event == nullptr)
        return -3;
    (void)comutil_get_json_str_by_key(event, "vbus_time", notice->vbus_time, sizeof(notice->vbus_time));
    (void)comutil_get_json_int_by_key(event, "vbus_type", &notice->vbus_type);
    (void)comutil_get_json_int_by_key(event, "vbus_action", &notice->vbus_action);
    (void)comutil_get_json_str_by_key(event, "vbus_extra_info", notice->vbus_extra_info,
                                      sizeof(notice->vbus_extra_info));
    return 0;
}

int vbus_notice_dispatch(int vbus_type, int vbus_action, const char * /*extra_info*/)
{
    switch (vbus_type) {
    case kVbusMonitor:
        if (vbus_action == kVbusMonitorWake)
            monitor_wakeup();
        return 0;
    case kVbusDisks:
        return disk_flag_update();
    default:
        return 0;
    }
}

TResponse proc_notify_put(const httpserver::http_request &request)
{
    TServiceNotice notice;
    /* A string_view in later versions of the library. */
    int result = notice_parse(std::string(request.get_content()), &notice);
    switch (notice.type) {
    case kStorageChanged:
    case kDisksChanged:
        result = disk_flag_update();
        break;
    case kMessageBus:
        /* This result replaces the parser's, also for an event without data: peers rely
         * on the 0 that it gives. */
        result = vbus_notice_dispatch(notice.vbus_type, notice.vbus_action, notice.vbus_extra_info);
        break;
    default:
        write_stderr("%s:%s(%d) not support type=%d\n", "VeloMond_RESTful", "proc_notify_put", 475, notice.type);
        break;
    }
    const TJson root(json_object_new_object());
    json_give(root.get(), "retCode", TJson(json_object_new_int(result)));
    return json_response(json_text(root.get()));
}
