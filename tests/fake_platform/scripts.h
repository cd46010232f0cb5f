#pragma once

#include "fake_platform/fake_platform.h"

namespace fake {

/* Everything but clocks and waits, behind one lock. */
struct T_SCRIPTS {
    std::recursive_mutex lock;
    T_STATE state;
    std::string root;
    std::function<int(const argv_t &)> exec;
    std::function<std::optional<std::string>(const argv_t &)> popen;
    std::function<long long(const T_REQUEST &, std::string *)> request;
    std::vector<argv_t> programs;
    std::vector<T_REQUEST> requests;
    std::vector<std::string> service_calls;
};
T_SCRIPTS &scripts();

/* A copy of one member: scripts are called, and records returned, unlocked. */
template <typename TMember> auto copy_of(TMember T_SCRIPTS::*member)
{
    const std::lock_guard guard(scripts().lock);
    return scripts().*member;
}

} // namespace fake
