#pragma once

#include <string>

#include "common/json.h"
#include "fake_platform/fake_platform.h"

using T_STAT_PROC = int(const char *method, const char *type, const char *name, json_object **out);

/* What a kind's query operation answers, as text; "none" without an object. */
inline std::string stat_ask(T_STAT_PROC *proc, const char *method, const char *type, const char *name, int expected = 0)
{
    json_object *out = nullptr;
    EXPECT_EQ(proc(method, type, name, &out), expected);
    const TJson owner(out);
    return out != nullptr ? json_text(out) : "none";
}

/* A kind's tests: what is told on standard error stays out of the report. */
class TStatTest : public fake::TPlatformTest {
protected:
    void SetUp() override
    {
        TPlatformTest::SetUp();
        testing::internal::CaptureStderr();
    }
    void TearDown() override
    {
        testing::internal::GetCapturedStderr();
        TPlatformTest::TearDown();
    }
    /* What `action` tells. */
    template <typename TAction> static std::string told_by(TAction action)
    {
        testing::internal::GetCapturedStderr();
        std::string text = fake::stderr_of(action);
        testing::internal::CaptureStderr();
        return text;
    }
};
