#pragma once

#include <cstdint>

/* The camera-management record. Records are compared byte for byte, so they are filled starting from zeros. */
struct st_cmv_info {
    uint8_t value1;
    uint8_t value2;
    uint8_t value3;
    uint8_t padding;
    int32_t value4;
    char text1[64]; // NUL-terminated
    char text2[64]; // NUL-terminated
};
static_assert(sizeof(st_cmv_info) == 136);

int get_cmv_info(st_cmv_info &info);   // the current record
int check_cmv_info(st_cmv_info &info); // the recorded one
