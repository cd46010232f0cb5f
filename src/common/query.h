#pragma once

#include "base/json.h"

/* What the query operations of the monitors have in common. */

/* Result codes of a query. */
constexpr int kQueryOk = 0;
constexpr int kQueryNoManager = -2;
constexpr int kQueryNoMethod = -3;
constexpr int kQueryWrongArgs = -4;
constexpr int kQueryBadCount = -6;

/* The beginning of the statistics kinds' queries.
 * kQueryOk; kQueryWrongArgs when the method or the name is empty, else
 * kQueryNoManager when the kind is not up. Failures are logged on standard error. */
int query_head(const char *method, const char *name, const void *manager, const char *manager_name);

/* Reads the count of intervals. kQueryOk, or kQueryBadCount, logged, if it is
 * negative. */
int query_count(const char *type, int *count);

/* Logs that an argument is missing. Always kQueryWrongArgs. */
int query_wrong_args();

/* Logs that the method is unknown. Always kQueryNoMethod. */
int query_unknown(const char *method);

/* The C string of method compared. */
bool query_is(const char *method, const char *name);
