#pragma once

#include <string>
#include <utility>

/* How a question to the monitor, or a command, ended. The numbers are the exit
 * codes of velomondctl, so they stay. */
enum class TFault {
    kNone = 0,
    kInternal = 1,    // this program's own: out of memory, no such tool, ...
    kUsage = 2,       // an argument that makes no sense
    kUnreachable = 3, // nobody listens, or the host is not known
    kTimeout = 4,     // connected, but no whole answer in time
    kInvalid = 5,     // an answer that is none of the monitor's
    kRefused = 6,     // the monitor answered with a code other than 0
    kNotFound = 7,    // a name that is not followed, a folder that is not there
    kOutput = 8,      // the result cannot be written
};

/* `text` is one line without its end, clean for a terminal; empty when done. */
struct [[nodiscard]] TOutcome {
    TFault fault = TFault::kNone;
    std::string text;

    bool ok() const { return fault == TFault::kNone; }
};

inline TOutcome failure(TFault fault, std::string text)
{
    return {fault, std::move(text)};
}
