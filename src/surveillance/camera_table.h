#pragma once

#include <array>
#include <map>
#include <string>

#include "base/json.h"

/* The identities of the camera channels, from the recording service. */

constexpr int kCameraChannels = 192; // numbered from 0

/* Whether an id that the recording service gave is that of a channel; negative
 * ones are not. An id beyond the tables means that the two programs do not
 * belong together: the process ends with a message before any table is touched. */
bool camera_is_channel(int id);

/* Name, GUID and so on of one channel, of at most 127 characters each. */
using TCameraTexts = std::array<std::string, 7>;
using TCameras = std::map<int, TCameraTexts>; // by channel

/* Takes the channels out of the array of an answer. Elements without an integer
 * id are ignored; texts that are missing or are none stay empty. */
TCameras camera_table_parse(json_object *array);

/* The channels as an array of objects, in channel order. */
TJson camera_table_json(const TCameras &cameras);
