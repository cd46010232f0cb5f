#pragma once

#include <string>
#include <utility>

/* Result of a request to the monitor, or of a command. The numbers are the exit codes
 * of velomondctl, so they must not change. */
enum class TFault {
    kNone = 0,
    kInternal = 1,    // in this program: out of memory, ...
    kUsage = 2,       // invalid argument
    kUnreachable = 3, // connection refused, or unknown host
    kTimeout = 4,     // no complete answer in time
    kInvalid = 5,     // not a valid answer of the monitor
    kRefused = 6,     // the monitor answered with a code other than 0
    kNotFound = 7,    // a name that is not monitored, a missing folder or tool
    kOutput = 8,      // the result cannot be written
};

/* `text` is one line without line end, clean for a terminal; empty on success. */
struct [[nodiscard]] TOutcome {
    TFault fault = TFault::kNone;
    std::string text;

    bool ok() const { return fault == TFault::kNone; }
};

inline TOutcome failure(TFault fault, std::string text)
{
    return {fault, std::move(text)};
}
