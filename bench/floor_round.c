#include "floor_round.h"

#include <dirent.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

static char g_buffer[64 * 1024];

static long read_at(int folder, const char *path, size_t size)
{
    const int file = openat(folder, path, O_RDONLY | O_CLOEXEC);
    if (file < 0)
        return -1;
    const long got = read(file, g_buffer, size);
    close(file);
    return got;
}

long floor_read(const char *path)
{
    const int file = open(path, O_RDONLY | O_CLOEXEC);
    if (file < 0)
        return -1;
    long total = 0;
    long got = 0;
    while ((got = read(file, g_buffer, sizeof(g_buffer))) > 0)
        total += got;
    close(file);
    return total;
}

static int is_wanted(const char *const *names, size_t count, long length)
{
    for (size_t i = 0; i < count; ++i) {
        const size_t size = strlen(names[i]);
        if ((long)size + 1 == length && memcmp(names[i], g_buffer, size) == 0)
            return 1;
    }
    return 0;
}

long floor_scan(const char *proc, const char *const *names, size_t count, int want_stat, int want_statm)
{
    long found = 0;
    DIR *dir = opendir(proc);
    if (dir == NULL)
        return -1;
    const struct dirent *entry = NULL;
    while ((entry = readdir(dir)) != NULL) {
        if (entry->d_name[0] < '0' || entry->d_name[0] > '9')
            continue;
        char path[300];
        char *end = stpcpy(path, entry->d_name);
        stpcpy(end, "/comm");
        const long length = read_at(dirfd(dir), path, 63);
        if (length < 2 || !is_wanted(names, count, length))
            continue;
        ++found;
        if (want_statm) {
            stpcpy(end, "/statm");
            read_at(dirfd(dir), path, 128);
        }
        if (want_stat) {
            stpcpy(end, "/stat");
            read_at(dirfd(dir), path, 1023);
        }
    }
    closedir(dir);
    return found;
}
