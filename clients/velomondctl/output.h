#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "query_api/figures.h"
#include "query_api/outcome.h"

enum class TFormat { kTable, kJson, kCsv };

/* A cell: missing, a text, a number, or a boolean. */
using TCell = std::variant<std::monostate, std::string, double, int64_t, bool>;
TCell cell(const TFigure &figure);

/* Rows with named columns, in one of three formats: aligned text, a JSON array of
 * objects (numbers as numbers), or CSV (RFC 4180). */
struct TColumn {
    std::string key;  // member in JSON, heading in CSV
    std::string head; // heading in aligned text
    std::string_view unit;
};
struct TTable {
    std::vector<TColumn> columns;
    std::vector<std::vector<TCell>> rows;
};

std::string table_text(const TTable &table, TFormat format);

/* An object of tables and single values for `-o json`, in the order of the calls. */
class TJsonObject {
public:
    TJsonObject();
    ~TJsonObject();
    TJsonObject(const TJsonObject &) = delete;
    TJsonObject &operator=(const TJsonObject &) = delete;
    TJsonObject(TJsonObject &&) noexcept;
    TJsonObject &operator=(TJsonObject &&) noexcept;

    void add(const std::string &key, const TCell &value);
    void add(const std::string &key, const TTable &rows);
    void add(const std::string &key, TJsonObject value);
    std::string text() const; // with a line end

private:
    struct TImpl;
    std::unique_ptr<TImpl> m_impl;
};

/* A cell as text: "12.3", "1234", "yes"; "-" if it is missing. */
std::string number_text(const TCell &value, int decimals = 1);

/* "1.5 MB", "0 B", "-": with decimal prefixes. */
std::string size_text(const TFigure &bytes);

/* "2026-11-23 09:15:02" local time; "never" for 0. */
std::string time_text(int64_t utc_s);
/* "2026-11-23T08:15:02Z" */
std::string time_text_utc(int64_t utc_s);

/* Terminal colours. */
enum class TTone { kPlain, kGood, kWarning, kBad, kDim, kBold };
std::string toned(std::string_view text, TTone tone, bool colour);
TTone tone_of_state(std::string_view state);

/* Writes it all to standard output. kOutput when that fails. */
TOutcome put_out(std::string_view text);

/* Whether standard output shows colours: a terminal, not "dumb", and NO_COLOR unset. */
bool stdout_takes_colour();
