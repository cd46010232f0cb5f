#pragma once

#include <cstdint>
#include <string>

/* Reports a changed server name to the surveillance service's log facility.
 * SVRNAME-worker watches the configuration file and reads the name from the platform.
 * Both return 0. */
int servername_thread_start();
int servername_thread_stop();

/* --- For the thread and for tests --------------------------------------------- */

/* Reads the name from the platform. Its result, 0 with *name set; failures are
 * logged. */
uint32_t get_cur_servername(std::string *name);

/* Reads the name, in up to three attempts (empty if all fail), and stores it. Whether
 * it differs from the one stored before. */
bool servername_changed();

/* Handles a change of the file: sends a refresh if the name differs, without retry. */
void do_handling();
