#pragma once

#include <cstdint>
#include <string>

/* Tells the surveillance service's log facility when the host gets another server
 * name. The configuration file that holds it is watched by SVRNAME-worker; the
 * name itself is asked of the platform. Both return 0. */
int servername_thread_start();
int servername_thread_stop();

/* --- For the thread and for tests --------------------------------------------- */

/* The name as the platform tells it. The platform's result, 0 with *name set;
 * failures are logged. */
uint32_t get_cur_servername(std::string *name);

/* Reads the name, in up to three attempts (empty when all fail), and remembers
 * it. Whether it differs from the one remembered before. */
bool servername_changed();

/* What a change of the file leads to: a refresh, if the name is another one. A
 * refresh that fails is not repeated. */
void do_handling();
