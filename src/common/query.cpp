#include "common/query.h"

#include <cstring>

#include "base/text.h"
#include "common/trace.h"

int query_head(const char *method, const char *name, const void *manager, const char *manager_name)
{
    if (method[0] == '\0' || name[0] == '\0')
        return query_wrong_args();
    if (manager == nullptr) {
        write_stderr("%s does not exist.\n", manager_name);
        return kQueryNoManager;
    }
    return kQueryOk;
}

int query_count(const char *type, int *count)
{
    const int value = text_to_int(type);
    if (value < 0) {
        write_stderr("type=[%d] invalid.\n", value);
        return kQueryBadCount;
    }
    *count = value;
    return kQueryOk;
}

int query_wrong_args()
{
    write_stderr("wrong args.\n");
    return kQueryWrongArgs;
}

int query_unknown(const char *method)
{
    write_stderr("method=[%s] not support\n", text_printable(method).c_str());
    return kQueryNoMethod;
}

bool query_is(const char *method, const char *name)
{
    return strcmp(method, name) == 0;
}
