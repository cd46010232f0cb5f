#include "common/dashboard.h"

#include "base/text.h"
#include "platform/ssci.h"

constexpr int kPort = 10150, kTimeoutS = 5;

long long dashboard_post(const char *host, const char *kind, const std::string &body)
{
    std::string ignored;
    const std::string path = std::string("/logs/dashboard/status/receiver/") + kind;
    return ssci_POST_request(host, kPort, path.c_str(), body, &ignored, kTimeoutS);
}

long long dashboard_put(const char *host, const char *path, const std::string &body)
{
    std::string ignored;
    return ssci_PUT_request(host, kPort, path, body, &ignored, kTimeoutS);
}

std::string dashboard_status(uint32_t utc_s, const char *key, const char *value)
{
    return text_format(R"({"utc_time":"%u","%s":"%s"})", utc_s, key, value);
}
