#include "platform/stock/http/mhd_request.h"

#include <microhttpd.h>
#include <string_view>

THttpHead mhd_head(MHD_Connection *mhd)
{
    THttpHead head;
    const auto look = [](void *cls, MHD_ValueKind, const char *name, size_t name_size, const char *value,
                         size_t value_size) {
        static_cast<THttpHead *>(cls)->add({name, name_size}, {value, value_size});
        return MHD_YES;
    };
    MHD_get_connection_values_n(mhd, MHD_HEADER_KIND, look, &head);
    return head;
}

/* The library's own lookup ignores case: it would accept "METHOD" for "method". */
std::string TMhdRequest::get_arg(const std::string &key) const
{
    struct TSearch {
        std::string_view key;
        const char *value = "";
    } search = {key};
    const auto look = [](void *cls, MHD_ValueKind, const char *name, size_t name_size, const char *value, size_t) {
        auto *wanted = static_cast<TSearch *>(cls);
        if (std::string_view(name, name_size) != wanted->key)
            return MHD_YES;
        if (value != nullptr)
            wanted->value = value;
        return MHD_NO;
    };
    MHD_get_connection_values_n(m_mhd, MHD_GET_ARGUMENT_KIND, look, &search);
    return search.value;
}
