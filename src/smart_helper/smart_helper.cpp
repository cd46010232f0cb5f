#include "smart_helper/smart_helper.h"

#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "platform/host_path.h"
#include "platform/stock/storage/smartctl.h"

namespace {

constexpr size_t kMaxName = 31;
constexpr std::string_view kWake = "wake ";

/* All that was sent up to a line feed at its end: what comes behind a first one makes it no request. */
std::string read_request()
{
    char text[kWake.size() + kMaxName + 2];
    size_t size = 0;
    while (size < sizeof(text) && (size == 0 || text[size - 1] != '\n')) {
        const ssize_t count = read(STDIN_FILENO, text + size, sizeof(text) - size);
        if (count <= 0)
            break;
        size += static_cast<size_t>(count);
    }
    return {text, size};
}

/* Opens a file of sysfs that exists for each block device and each NVMe controller. -1 when the kernel knows no such
 * device. */
int open_device_number(const std::string &name)
{
    for (const char *folder : {"/sys/class/block/", "/sys/class/nvme/"}) {
        /* Inherited by smartctl, so that the lock on it lasts as long as the reading. */
        const int fd = open(host_path(folder + name + "/dev").c_str(), O_RDONLY);
        if (fd >= 0)
            return fd;
    }
    return -1;
}

[[noreturn]] void become_smartctl(const TSmartRequest &request)
{
    const int null = open("/dev/null", O_RDONLY | O_CLOEXEC);
    (void)dup2(null, STDIN_FILENO);
    const std::string node = "/dev/" + request.device;
    std::vector<char *> argv;
    for (const char *one : smartctl_command(node.c_str(), request.may_wake))
        argv.push_back(const_cast<char *>(one)); // execv does not modify them
    argv.push_back(nullptr);
    execv(host_path(argv[0]).c_str(), argv.data());
    perror(argv[0]);
    _exit(127);
}

} // namespace

TSmartRequest smart_request_parse(std::string_view text)
{
    TSmartRequest request;
    if (text.empty() || text.back() != '\n')
        return request;
    text.remove_suffix(1);
    request.may_wake = text.starts_with(kWake);
    if (request.may_wake)
        text.remove_prefix(kWake.size());
    if (!text.empty() && text.size() <= kMaxName && text.find_first_of("0123456789") != 0 &&
        text.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789") == std::string_view::npos)
        request.device = text;
    return request;
}

int smart_helper_serve()
{
    const TSmartRequest request = smart_request_parse(read_request());
    const int device = request.device.empty() ? -1 : open_device_number(request.device);
    if (device < 0) {
        fprintf(stderr, "no such device: [%s]\n", request.device.c_str());
        return 1;
    }
    if (flock(device, LOCK_EX | LOCK_NB) != 0) {
        fprintf(stderr, "%s is still being read\n", request.device.c_str());
        return 1;
    }
    signal(SIGCHLD, SIG_DFL); // if the parent left it ignored, the exit status would be lost
    const pid_t pid = fork();
    if (pid == 0)
        become_smartctl(request);
    int status = 0;
    if (pid < 0 || waitpid(pid, &status, 0) != pid) {
        perror("smartctl");
        return 1;
    }
    dprintf(STDOUT_FILENO, "\nexit %d\n", WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status));
    return 0;
}
