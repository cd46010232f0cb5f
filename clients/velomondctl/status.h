#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "query_api/snapshot.h"
#include "velomondctl/output.h"
#include "velomondctl/recorder.h"

/* The state on one screen, each line a label and a value. */
std::string status_text(const TSnapshot &now, const std::vector<TVolume> &volumes, bool colour);
std::string status_json(const TSnapshot &now, const std::vector<TVolume> &volumes);

std::string text_line(std::string_view label, std::string_view value);

/* The running services of the table, the busiest first. */
TTable services_table(const TSnapshot &now);
TTable volumes_table(const std::vector<TVolume> &volumes);
