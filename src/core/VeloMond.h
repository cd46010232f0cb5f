#pragma once

/* The control centre: starts and stops every monitor in a fixed order, takes one
 * sampling round every ten seconds, and has the statistics dumped on request. */

/* Initialises the monitors, starts MAIN-worker and brings the query service up,
 * in this order; once per process. A part that fails logs it, and the
 * rest goes on. Always 0. */
int VeloMond_start();

/* Takes the service down first, so that no handler runs while a monitor stops,
 * then MAIN-worker, then the monitors in the order of their start. A step that hangs
 * for 10 s ends the process, with status 0. Always 0. */
int VeloMond_stop();

/* Kept for existing callers; restarts nothing. Always 0. */
int VeloMond_restart();

/* Writes all statistics into a dump folder. Waits for a sampling round in
 * progress. Any thread may call between start and stop. Always 0. */
int VeloMond_statistics_dump();

/* Has MAIN-worker check its deadline now. It does not force a round. Any
 * thread may call between start and stop. */
void monitor_wakeup();

/* Prints the current figures of the statistics on standard error; the main
 * thread's, between start and stop. */
void VeloMond_debug_print();
