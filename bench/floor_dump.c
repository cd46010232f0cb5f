#include "floor_dump.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

size_t floor_dump(const char *folder, const struct TFloorFile *files, size_t count)
{
    size_t written = 0;
    mkdir(folder, 0755);
    for (size_t i = 0; i < count; ++i) {
        const int file = open(files[i].path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        if (file < 0)
            continue;
        if (write(file, files[i].data, files[i].size) == (ssize_t)files[i].size)
            ++written;
        close(file);
    }
    return written;
}
