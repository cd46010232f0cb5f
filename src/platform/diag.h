#pragma once

/* Records the crash signal `signal` (program, signal, thread, back trace on standard error) before it ends the process
 * by its default action. Returns 0 or -1 with errno. */
int diag_com_install_siganl_handler(int signal, const char *program, int option);
