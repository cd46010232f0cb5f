#include "fuzz.h"

#include <cstring>
#include <string>

#include "large.h"
#include "service/notify_handler.h"

/* Bodies of notices, which any program of the machine may send. */
void fuzz_one(std::string_view text)
{
    TServiceNotice notice;
    const int result = notice_parse(std::string(text), &notice);
    FUZZ_CHECK(result <= 0 && result >= -3);
    FUZZ_CHECK(memchr(notice.vbus_time, '\0', sizeof(notice.vbus_time)) != nullptr);
    FUZZ_CHECK(memchr(notice.vbus_extra_info, '\0', sizeof(notice.vbus_extra_info)) != nullptr);
    if (result == -1)
        FUZZ_CHECK(notice.type == -1 && notice.vbus_type == -1);
    fuzz_large(text, [](const std::string &body) {
        TServiceNotice ignored;
        (void)notice_parse(body, &ignored);
    });
}
