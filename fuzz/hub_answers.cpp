#include "fuzz.h"

#include <string>

#include "platform/stock/http_rules.h"
#include "platform/stock/hub.h"
#include "platform/stock/pal_vbus_body.h"
#include "platform/stock/volumes.h"

/* What the hub answers, and other texts that the stock platform takes apart. */
void fuzz_one(std::string_view text)
{
    T_HTTP_PEER peer = {"", 0};
    if (hub_address_parse(std::string(text), &peer) == 0)
        FUZZ_CHECK((peer.host == "localhost" || peer.host == "127.0.0.1") && peer.port > 0 && peer.port <= 65535);
    else
        FUZZ_CHECK(peer.port == 0);
    std::string response;
    (void)vbus_rules_answer(text, &response);

    T_MOUNT mount;
    FUZZ_CHECK(!mount_find(text, "/share/System", &mount) || !mount.device.empty());
    (void)http_host_is_local(text);
}
