#pragma once

/* Has the crash signal `signal` recorded (program, signal, thread, back trace on
 * standard error) before it ends the process as it would have anyway. Returns 0
 * or -1 with errno. */
int diag_com_install_siganl_handler(int signal, const char *program, int option);
