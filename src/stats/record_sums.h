#pragma once

/* Arithmetic of a sample record, field by field over those that are named: unsigned
 * fields wrap. */
template <auto... kFields> struct TRecordSums {
    template <typename T> static void add(T *sum, const T &element) { ((sum->*kFields += element.*kFields), ...); }
    template <typename T> static void subtract(T *sum, const T &element) { ((sum->*kFields -= element.*kFields), ...); }
    template <typename T, typename TCount> static void divide(T *sum, TCount count) { ((sum->*kFields /= count), ...); }
};
