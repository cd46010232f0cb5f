#include "fuzz.h"

#include "large.h"
#include "platform/stock/storage/smartctl.h"

/* The documents of smartctl. */
void fuzz_one(std::string_view text)
{
    T_SMART_READING reading;
    if (smart_parse(text, &reading) != 0)
        FUZZ_CHECK(!reading.passed && !reading.power_on_hours && !reading.worn);
    FUZZ_CHECK(reading.power_on_hours.value_or(0) >= 0);
    fuzz_large(text, [](const std::string &document) {
        T_SMART_READING ignored;
        (void)smart_parse(document, &ignored);
    });

    for (const int status : {0, 1, 2, 4, 64}) {
        T_SMART_READING told;
        const bool was_read = smart_outcome(status, text, &told) == T_SMART_OUTCOME::read;
        FUZZ_CHECK(was_read == (told.passed || told.power_on_hours || told.worn));
    }
}
