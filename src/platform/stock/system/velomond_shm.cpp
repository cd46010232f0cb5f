#include "platform/velomond_shm.h"

#include <atomic>

#include "base/text.h"
#include "platform/logging.h"
#include "platform/stock/system/shm_record.h"

namespace {

constexpr const char *kName = "/velomond";

/* Reading or writing: a failure is logged when it begins, not for as long as it lasts. */
class TOutcome {
public:
    explicit TOutcome(const char *what) : m_what(what) {}
    int log(int result)
    {
        if (m_last.exchange(result) != result && result != 0)
            log_Debug("shared memory %s cannot be %s: %s", kName, m_what, error_text(-result).c_str());
        return result;
    }

private:
    const char *m_what;
    std::atomic<int> m_last{0};
};
TOutcome g_reading{"read"}, g_writing{"written"};

} // namespace

int velomond_shm_get(t_velomond_shm *record)
{
    return g_reading.log(shm_record_get(kName, record));
}

int velomond_shm_set(const t_velomond_shm *record)
{
    return g_writing.log(shm_record_set(kName, *record));
}
