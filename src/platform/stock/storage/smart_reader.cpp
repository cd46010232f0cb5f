#include "platform/stock/storage/smart_reader.h"

#include <cerrno>

#include "platform/stock/process/child_process.h"
#include "platform/stock/storage/smart_socket.h"
#include "platform/stock/storage/smartctl_command.h"

namespace {

constexpr TChildLimits kLimits = {60, size_t{1024} * 1024, 500, 1, true}; // the device is an argument

} // namespace

int smart_document(const std::string &disk, bool may_wake, std::string *out)
{
    out->clear(); // a child's output is appended
    const int status = smart_socket_ask(disk, may_wake, kLimits, out);
    if (status != -ENOENT)
        return status;
    const std::string node = "/dev/" + disk;
    return child_run(smartctl_command(node.c_str(), may_wake), kLimits, out);
}
