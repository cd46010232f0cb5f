#include "platform/interrupt.h"

namespace {

thread_local const std::atomic<bool> *t_flag = nullptr;

} // namespace

void platform_interrupt_on(const std::atomic<bool> *flag)
{
    t_flag = flag;
}

bool platform_interrupted()
{
    return t_flag != nullptr && t_flag->load();
}
