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
 * then an empty line. Nothing of them is trusted: names come out clean, a value that
 * is no number is missing, and there are bounds on everything. */
struct TDumpEntity {
    std::string name;
    std::map<std::string, std::vector<TFigure>> rows; // by label
    const std::vector<TFigure> *row(const std::string &label) const;
};
struct TDump {
    std::vector<TDumpEntity> cpu, net, disk, mem;
    int64_t interval_s = 10; // from one value to the next, as a rule
};

std::vector<TDumpEntity> dump_parse(std::string_view text);

/* Reads the four files; those that are missing leave their part empty. kNotFound when
 * none is there, kInvalid for a file that holds no entity. */
TOutcome dump_read(const std::string &folder, TDump *out);
