#include "stats/stat_dump.h"

#include <cinttypes>
#include <cstdio>

#include "platform/host_path.h"

void csv_column_u64(std::string *text, uint64_t value)
{
    char column[32];
    const int length = snprintf(column, sizeof(column), ", %" PRIu64, value);
    text->append(column, static_cast<size_t>(length));
}

void csv_column_1f(std::string *text, double value)
{
    char column[328]; // the largest double has 309 digits before the point
    const int length = snprintf(column, sizeof(column), ", %.1f", value);
    text->append(column, static_cast<size_t>(length));
}

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
