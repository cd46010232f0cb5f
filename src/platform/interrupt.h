#pragma once

#include <atomic>

/* From now on, platform calls that block the calling thread on a peer or a child process (client requests,
 * kestrel_exec, kestrel_popen) are cancelled soon after *flag becomes true and a vos_cond_wait_signal() follows; they
 * fail, client requests with SSCI_CANCELLED. The flag must outlive the thread's last such call; null removes it. A
 * platform whose calls cannot be cancelled may ignore this: the stop then waits for their time-outs. */
void platform_interrupt_on(const std::atomic<bool> *flag);

/* Whether the calling thread was asked to stop. */
bool platform_interrupted();
