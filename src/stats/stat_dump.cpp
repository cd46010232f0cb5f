#include "stats/stat_dump.h"

#include <cstdio>

#include "platform/host_path.h"

void csv_write(const char *folder, const char *name, const std::string &text)
{
    char path[256];
    if (snprintf(path, sizeof(path), "%s/%s", folder, name) >= static_cast<int>(sizeof(path)))
        return;
    FILE *file = fopen(host_path(path).c_str(), "wbe");
    if (file == nullptr)
        return;
    (void)fwrite(text.data(), 1, text.size(), file);
    (void)fclose(file);
}
