#include "fuzz.h"

#include "large.h"
#include "platform/stock/storage/smartctl.h"

/* The documents of smartctl. */
void fuzz_one(std::string_view text)
{
    fuzz_large(text, [](const std::string &document) {
        TSmartReading ignored;
        (void)smart_outcome(0, document, &ignored);
    });

    for (const int status : {0, 1, 2, 4, 64}) {
        TSmartReading told;
        const bool was_read = smart_outcome(status, text, &told) == TSmartOutcome::kRead;
        FUZZ_CHECK(was_read == (told.passed || told.power_on_hours || told.worn));
        FUZZ_CHECK(told.power_on_hours.value_or(0) >= 0);
    }
}
