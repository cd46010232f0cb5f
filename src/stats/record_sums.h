#pragma once

/* Arithmetic of a sample record, field by field over those that are named: unsigned
 * fields wrap. */
template <auto... kFields> struct TRecordSums {
    template <typename TRecord> static void add(TRecord *sum, const TRecord &element)
    {
        ((sum->*kFields += element.*kFields), ...);
    }
    template <typename TRecord> static void subtract(TRecord *sum, const TRecord &element)
    {
        ((sum->*kFields -= element.*kFields), ...);
    }
    template <typename TRecord, typename TCount> static void divide(TRecord *sum, TCount count)
    {
        ((sum->*kFields /= count), ...);
    }
};
