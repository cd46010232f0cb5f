#include "common/watcher.h"

#include "common/debug_log.h"

void start_failure_log(const TStartFailure &failure, int error)
{
    log_File_Debug(failure.log, failure.format, failure.source, failure.function, failure.line, error);
}

int TWatcher::start()
{
    if (const int error = m_worker.start(m_plan); error != 0)
        start_failure_log(m_failure, error);
    return 0;
}

int TWatcher::stop()
{
    m_worker.stop();
    m_worker.release();
    return 0;
}
