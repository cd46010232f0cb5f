#include "platform/velomond_shm.h"

#include "platform/stock/shm_record.h"

namespace {

constexpr const char *kName = "/velomond";

} // namespace

int velomond_shm_get(t_velomond_shm *record)
{
    return shm_record_get(kName, record);
}

int velomond_shm_set(const t_velomond_shm *record)
{
    return shm_record_set(kName, *record);
}
