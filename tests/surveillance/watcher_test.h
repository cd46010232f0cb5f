#pragma once

#include <gmock/gmock.h>

#include "base/json.h"
#include "common/debug_log.h"
#include "fake_platform/fake_platform.h"

/* A watcher between its peers: what they answer, and what it asked them. */
class TWatcherTest : public fake::TQuietTest {
protected:
    /* Requests whose verb or path is `first` get one answer, all others the other. */
    static void peers(const std::string &first, const std::string &answer, const std::string &other,
                      long long result = 0, long long other_result = 0)
    {
        fake::state()->request = [=](const fake::TRequest &request, std::string *out) {
            const bool is_first = request.verb == first || request.path == first;
            *out = is_first ? answer : other;
            return is_first ? result : other_result;
        };
    }
    static std::vector<fake::TRequest> sent(const std::string &verb)
    {
        std::vector<fake::TRequest> all = fake::state()->requests;
        std::erase_if(all, [&](const fake::TRequest &request) { return request.verb != verb; });
        return all;
    }
    static std::string line_of(const fake::TRequest &one) // "VERB host:port/path timeout"
    {
        return one.verb + " " + one.host + ":" + std::to_string(one.port) + one.path + " " +
               std::to_string(one.timeout_s);
    }
};
