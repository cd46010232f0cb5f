#pragma once

#include <string>

#include "platform/cmv_info.h"

/* Once an hour compares the current camera-management record with the recorded one,
 * byte for byte, and logs a difference. A step of the sampling round, which returns at
 * once until its hour has passed. Always 0. */
int cmv_info_check();

/* A record as the log shows it: six values, at most 63 characters. A text without
 * a NUL is shown to the end of its field. */
std::string cmv_info_text(const st_cmv_info &info);
