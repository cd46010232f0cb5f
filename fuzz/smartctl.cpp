#include "fuzz.h"

#include "platform/stock/smartctl.h"

/* The documents of the tool that reads the disks' health. */
void fuzz_one(std::string_view text)
{
    T_SMART_READING reading;
    if (smart_parse(text, &reading) != 0)
        FUZZ_CHECK(!reading.passed && !reading.power_on_hours && !reading.attribute_low);
    FUZZ_CHECK(reading.power_on_hours.value_or(0) >= 0);
}
