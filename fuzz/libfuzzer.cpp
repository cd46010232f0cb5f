#include <cstddef>
#include <cstdint>

#include "fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz_one({reinterpret_cast<const char *>(data), size});
    return 0;
}
