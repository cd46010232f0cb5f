#include "platform/stock/http/http_rules.h"

#include <algorithm>
#include <charconv>
#include <strings.h>

namespace {

bool is_same(std::string_view a, std::string_view b)
{
    return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

/* Whether *text has that beginning, which is then removed from it. */
bool take(std::string_view *text, std::string_view beginning)
{
    if (!is_same(text->substr(0, beginning.size()), beginning))
        return false;
    text->remove_prefix(beginning.size());
    return true;
}

/* "null", which browsers send for a page with an opaque origin, is not local. */
bool origin_is_local(std::string_view value)
{
    return (take(&value, "http://") || take(&value, "https://")) && http_host_is_local(value);
}

/* A number that is too large becomes the largest one; the library rejects what is not a number. */
uint64_t length_of(std::string_view value)
{
    uint64_t length = 0;
    const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), length);
    return error == std::errc::result_out_of_range ? UINT64_MAX : length;
}

} // namespace

bool http_host_is_local(std::string_view value)
{
    constexpr std::string_view kNames[] = {"localhost", "127.0.0.1", "[::1]"};
    return std::any_of(std::begin(kNames), std::end(kNames), [value](std::string_view name) {
        std::string_view rest = value;
        return take(&rest, name) && (rest.empty() || (rest[0] == ':' && rest.size() > 1 &&
                                                      rest.find_first_not_of("0123456789", 1) == rest.npos));
    });
}

void THttpHead::add(std::string_view name, std::string_view value)
{
    if (is_same(name, "Host")) {
        host_is_local = host_is_local && http_host_is_local(value);
    } else if (is_same(name, "Origin")) {
        page_is_local = page_is_local && origin_is_local(value);
    } else if (is_same(name, "Sec-Fetch-Site")) {
        page_is_local = page_is_local && !is_same(value, "cross-site");
    } else if (is_same(name, "Content-Length")) {
        ++lengths;
        length = std::max(length, length_of(value));
    } else if (is_same(name, "Transfer-Encoding")) {
        ++encodings;
    }
}
