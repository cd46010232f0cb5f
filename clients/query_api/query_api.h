#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "query_api/answers.h"
#include "query_api/http_client.h"

/* The monitor's query service as functions. One thread at a time. All calls since
 * the last begin() share its time limit; each is one request on a kept-alive
 * connection. *out is written on success only. */
class TQueryApi {
public:
    explicit TQueryApi(TAddress address = {});

    void begin(std::chrono::milliseconds budget);
    const TAddress &address() const { return m_http.address(); }

    TOutcome status(TStatus *out);

    /* The newest interval (10 s), or the average of the newest `intervals` (0: all,
     * at most 90). Zeros for a name that is not monitored. */
    TOutcome figures(TKind kind, const std::string &name, std::optional<unsigned> intervals, TFigures *out);
    TOutcome series(TKind kind, const std::string &name, TSeries *out);

    TOutcome disks(TStateAt *out);
    TOutcome fans(TStateAt *out);
    TOutcome recording(TStateAt *out);
    TOutcome hardware(std::string *out);

    /* The newest minute, or the newest `minutes` together (0: a whole day). */
    TOutcome cameras(std::optional<unsigned> minutes, TCameraStat *out);
    TOutcome channels(std::vector<TChannel> *out);

    /* Returns when the dump is written, possibly after the current sampling round. */
    TOutcome dump();
    TOutcome notify(int type);

private:
    TOutcome get(const char *route, const TArguments &arguments, std::string *answer);
    TOutcome statistics(TKind kind, const std::string &name, const char *method, const std::string &type,
                        std::string *answer);
    template <typename TValue>
    TOutcome ask(const char *route, const TArguments &arguments, TOutcome (*take)(std::string_view, TValue *),
                 TValue *out);

    THttpClient m_http;
};
