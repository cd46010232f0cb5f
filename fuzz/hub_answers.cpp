#include "fuzz.h"

#include <string>

#include "large.h"
#include "platform/stock/http/http_rules.h"
#include "platform/stock/hub/hub.h"
#include "platform/stock/hub/pal_vbus.h"
#include "platform/stock/storage/volumes.h"

/* The hub's answers, and other texts that the stock platform parses. */
void fuzz_one(std::string_view text)
{
    THttpPeer peer = {"", 0};
    if (hub_address_parse(std::string(text), &peer) == 0)
        FUZZ_CHECK((peer.host == "localhost" || peer.host == "127.0.0.1") && peer.port > 0 && peer.port <= 65535);
    else
        FUZZ_CHECK(peer.port == 0);
    std::string response;
    (void)vbus_rules_answer(text, &response);
    fuzz_large(text, [](const std::string &answer) {
        THttpPeer ignored;
        (void)hub_address_parse(answer, &ignored);
        std::string message;
        (void)vbus_rules_answer(answer, &message);
    });

    TMount mount;
    FUZZ_CHECK(!mount_find(text, "/share/System", &mount) || !mount.device.empty());
    THttpHead head;
    for (const char *name : {"Host", "Origin", "Sec-Fetch-Site", "Content-Length"})
        head.add(name, text);
    FUZZ_CHECK(head.host_is_local == http_host_is_local(text) && head.is_clear());
}
