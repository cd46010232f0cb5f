#pragma once

#include <string>
#include <vector>

#include <prometheus/metric_family.h>

#include "query_api/snapshot.h"

/* Result of a fetch; `error` is empty when it succeeded. */
struct TFetch {
    TSnapshot snapshot;
    std::string error;
    double duration_s = 0;
    double age_s = 0; // since it ended
};

/* All metrics of one scrape: the exporter's own always, the monitor's only after a
 * successful fetch. Missing values have no sample; a service that is not running has
 * velomond_service_running only. Base units: seconds, bytes, ratios. */
std::vector<prometheus::MetricFamily> metrics_of(const TFetch &fetch);

std::string metrics_text(const std::vector<prometheus::MetricFamily> &families);
