#pragma once

#include <string>
#include <vector>

#include <prometheus/metric_family.h>

#include "query_api/snapshot.h"

/* How a fetch went; `error` is empty when it succeeded. */
struct TFetch {
    TSnapshot snapshot;
    std::string error;
    double duration_s = 0;
    double age_s = 0; // since it ended
};

/* All metrics of one scrape: of the exporter itself always, of the monitor only after
 * a fetch that succeeded. A figure that is missing has no sample, a service that does
 * not run only velomond_service_running. Base units: seconds, bytes, ratios. */
std::vector<prometheus::MetricFamily> metrics_of(const TFetch &fetch);

std::string metrics_text(const std::vector<prometheus::MetricFamily> &families);
