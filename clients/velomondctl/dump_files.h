#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "query_api/figures.h"
#include "query_api/outcome.h"

/* The CSV files of a dump, as a recorder in the field wrote them: per entity a line
 * with its name, then a row per figure, a label and the values, the newest first,
 * then an empty line. The files are not trusted: names are cleaned, a value that is not
 * a number is missing, and all sizes are bounded. */
struct TDumpEntity {
    std::string name;
    std::map<std::string, std::vector<TFigure>> rows; // by label
    const std::vector<TFigure> *row(const std::string &label) const;
};
struct TDump {
    std::vector<TDumpEntity> cpu, net, disk, mem;
    int64_t interval_s = 10; // between two values, normally
};

std::vector<TDumpEntity> dump_parse(std::string_view text);

/* Reads the four files; the part of a missing file is empty. kNotFound if all are
 * missing, kInvalid for a file without any entity. */
TOutcome dump_read(const std::string &folder, TDump *out);
