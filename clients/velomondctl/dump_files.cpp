#include "velomondctl/dump_files.h"

#include <fstream>
#include <utility>

#include "query_api/clean_text.h"

namespace {

constexpr size_t kMaxFile = 16U << 20;
constexpr size_t kMaxEntities = 4096;
constexpr size_t kMaxRows = 32;      // of an entity
constexpr size_t kMaxColumns = 1440; // a history has 90

std::string_view next_part(std::string_view *text, char end)
{
    const size_t at = text->find(end);
    const std::string_view part = text->substr(0, at);
    text->remove_prefix(at == std::string_view::npos ? text->size() : at + 1);
    return part;
}

std::string_view trimmed(std::string_view text)
{
    while (!text.empty() && (text.front() == ' ' || text.front() == '\r'))
        text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\r'))
        text.remove_suffix(1);
    return text;
}

} // namespace

const std::vector<TFigure> *TDumpEntity::row(const std::string &label) const
{
    const auto found = rows.find(label);
    return found != rows.end() ? &found->second : nullptr;
}

std::vector<TDumpEntity> dump_parse(std::string_view text)
{
    std::vector<TDumpEntity> entities;
    std::string name;
    bool begun = false; // the last entity is that of `name`
    while (!text.empty()) {
        std::string_view line = trimmed(next_part(&text, '\n'));
        if (line.find(',') == std::string_view::npos) { // a name, or a label without values
            name = clean_text(line, 63);
            begun = false;
            continue;
        }
        if (!begun && entities.size() == kMaxEntities)
            break;
        if (!begun)
            entities.push_back({name, {}});
        begun = true;
        const std::string label = clean_text(trimmed(next_part(&line, ',')), 63);
        if (entities.back().rows.size() == kMaxRows)
            continue;
        std::vector<TFigure> &row = entities.back().rows[label];
        row.clear();
        while (!line.empty() && row.size() < kMaxColumns) {
            TFigure value;
            (void)figure_parse(trimmed(next_part(&line, ',')), &value);
            row.push_back(value);
        }
    }
    return entities;
}

TOutcome dump_read(const std::string &folder, TDump *out)
{
    TDump taken;
    bool found = false;
    for (const auto &[file, entities] : {std::pair("cpu_stats.csv", &taken.cpu),
                                         {"net_stats.csv", &taken.net},
                                         {"disk_stats.csv", &taken.disk},
                                         {"mem_stats.csv", &taken.mem}}) {
        std::ifstream stream(folder + "/" + file, std::ios::binary);
        if (!stream)
            continue;
        found = true;
        std::string text(kMaxFile, '\0');
        stream.read(text.data(), static_cast<std::streamsize>(text.size()));
        text.resize(static_cast<size_t>(stream.gcount()));
        *entities = dump_parse(text);
        if (entities->empty() && trimmed(text).find_first_not_of('\n') != std::string_view::npos &&
            text.find("system") != 0)
            return failure(TFault::kInvalid, "not a dump file: " + clean_text(folder + "/" + file));
    }
    if (!found)
        return failure(TFault::kNotFound, "no dump in " + clean_text(folder));
    *out = std::move(taken);
    return {};
}
