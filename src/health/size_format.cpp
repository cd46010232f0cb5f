#include "health/size_format.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>

namespace {

constexpr uint64_t kMb = 1048576;
constexpr uint64_t kGb = 1024 * kMb;
constexpr char kLetters[] = "KMGTPE";
constexpr const char *kUnitTokens[] = {"'$DEF_V001'", "'$DEF_V002'", "'$DEF_V003'"}; // MB, GB, TB

/* An amount after one or more divisions by 1024. */
struct TScaled {
    uint64_t value;
    int tenth;
    size_t divisions;

    uint64_t rounded() const { return value + (tenth >= 5 ? 1 : 0); }
};

TScaled scale(uint64_t amount, size_t most_divisions)
{
    TScaled result = {amount, 0, 0};
    uint64_t before = 0;
    do {
        before = result.value;
        result.value = before / 1024;
        ++result.divisions;
    } while (before > 0xFFFFF && result.divisions < most_divisions);
    const uint64_t remainder = before % 1024 * 10;
    if (remainder >= 9728) // would round to a tenth of ten
        ++result.value;
    else
        result.tenth = static_cast<int>((remainder + 512) / 1024);
    return result;
}

} // namespace

void format_size_human(char *out, size_t size, uint64_t count, uint64_t unit, uint64_t divisor)
{
    if (count == 0)
        return;
    const uint64_t bytes = count * std::max<uint64_t>(unit, 1);
    if (divisor != 0 || bytes < 1024) {
        snprintf(out, size, "%" PRIu64, divisor != 0 ? (bytes + divisor / 2) / divisor : bytes);
        return;
    }
    const TScaled scaled = scale(bytes, sizeof(kLetters) - 1);
    const char letter = kLetters[scaled.divisions - 1];
    if (unit == 0)
        snprintf(out, size, "%" PRIu64 " %*cB", scaled.rounded(), 1, letter);
    else
        snprintf(out, size, "%" PRIu64 ".%d %cB", scaled.value, scaled.tenth, letter);
}

void format_size_quoted(char *value, size_t value_size, char *unit_text, size_t unit_size, uint64_t count,
                        uint64_t unit, bool rounded)
{
    if (count == 0)
        return;
    const uint64_t bytes = count * std::max<uint64_t>(unit, 1);
    TScaled scaled = {bytes / kMb, 0, 0};
    if (bytes >= kGb)
        scaled = scale(bytes / kMb, 2);
    if (bytes < kGb || rounded || unit == 0)
        snprintf(value, value_size, "'%" PRIu64 "'", scaled.rounded());
    else
        snprintf(value, value_size, "'%" PRIu64 ".%d'", scaled.value, scaled.tenth);
    snprintf(unit_text, unit_size, "%s", kUnitTokens[scaled.divisions]);
}
