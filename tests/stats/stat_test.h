#pragma once

#include <string>

#include "base/json.h"
#include "fake_platform/fake_platform.h"

/* A kind's tests, with the kind up. */
template <auto INIT, auto UNINIT, auto SAMPLE, auto PROC> class TStatTest : public fake::TQuietTest {
protected:
    TStatTest()
    {
        fake::g_wall_ms = 1000000;
        INIT();
    }
    ~TStatTest() override { UNINIT(); }
    /* One round, that long after the one before. */
    static void round(const char *file, const std::string &text, uint64_t ms = 10000)
    {
        write_file(file, text);
        fake::advance_ms(ms);
        EXPECT_EQ(SAMPLE(), 0);
    }
    /* The values of an answer, a blank between them; nothing without an object. Their names: tests/e2e. */
    static std::string ask(const char *method, const char *type, const char *name, int expected = 0)
    {
        json_object *out = nullptr;
        EXPECT_EQ(PROC(method, type, name, &out), expected) << method;
        const TJson owner(out);
        std::string values;
        if (out == nullptr)
            return values;
        json_object_object_foreach(out, key, value)
        {
            EXPECT_STRNE(key, "");
            values.append(values.empty() ? "" : " ").append(json_object_get_string(value));
        }
        return values;
    }
    static std::string refusal(const char *method, const char *type, const char *name, int expected)
    {
        return told_by([&] { EXPECT_EQ(ask(method, type, name, expected), ""); });
    }
};

using TStatAnswer = const char *[4]; // method, type, name; the values
