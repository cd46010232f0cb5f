#include "platform/velomond_shm.h"

#include <cstring>

#include "platform/logging.h"
#include "platform/stock/shm_record.h"

namespace {

constexpr const char *kName = "/velomond";

int told(const char *what, int result)
{
    if (result != 0)
        log_Debug("shared memory %s cannot be %s: %s", kName, what, strerror(-result));
    return result;
}

} // namespace

int velomond_shm_get(t_velomond_shm *record)
{
    return told("read", shm_record_get(kName, record));
}

int velomond_shm_set(const t_velomond_shm *record)
{
    return told("written", shm_record_set(kName, *record));
}
