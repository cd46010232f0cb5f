#pragma once

#include <atomic>

/* From now on, calls of the platform that block the calling thread on a peer or
 * a child process (client requests, kestrel_exec, kestrel_popen) give up soon
 * after *flag turns true and a vos_cond_wait_signal() follows, and fail, client
 * requests with SSCI_CANCELLED. The flag must outlive the thread's last such call;
 * null takes the arrangement back. A platform whose
 * calls cannot be given up may ignore this: the stop then waits for their own
 * time-outs. */
void platform_interrupt_on(const std::atomic<bool> *flag);

/* Whether the calling thread was asked to give up. */
bool platform_interrupted();
