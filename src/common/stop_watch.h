#pragma once

/* Watches the stop of the process. A disk that does not respond can block a thread forever, and the stop with it: a
 * step without progress for 10 s is logged, and the process ends by _exit(0) without the steps behind it. SIGALRM is
 * used for this, which a thread of its own takes. */

/* Starts the watch; without its thread, which is logged, the stop is not watched. For the main thread, like the steps
 * and the end. */
void stop_watch_begin();

/* Begins the next step. */
void stop_watch_step(const char *name);

/* Work that must complete has begun or ended; each of its calls ends after 5 s. Any thread may call, whether a stop is
 * watched or not. */
void stop_watch_progress();

/* All steps are complete: ends the watch. */
void stop_watch_end();
