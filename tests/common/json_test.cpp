#include "base/json.h"

#include <gtest/gtest.h>

#include "base/json_bounds.h"

namespace {

std::string times(size_t count, const std::string &unit)
{
    std::string text;
    for (size_t i = 0; i < count; ++i)
        text += unit;
    return text;
}

TEST(JsonParse, TakesAllChannelsWithAllTheyHaveAndNoMoreThanATreeMayHold)
{
    const std::string channel = "{" + times(79, R"("k\",[{":"v",)") + "\"id\":1}";
    const struct {
        std::string text;
        bool taken;
    } cases[] = {{"{\"data\":[" + times(191, channel + ",") + channel + "]}", true},
                 {"[\"" + times(1000000, ",") + "\"]", true},
                 {"[\"" + times(1000000, "\\\",[") + "\"]", true},
                 {"[" + times(kJsonMaxNodes - 2, "1,") + "1]", true},
                 {"[" + times(kJsonMaxNodes, "1,") + "1]", false},
                 {"[" + times(2700, "{},") + "1]", true},
                 {"[" + times(2800, "{},") + "1]", false},
                 {times(20, "[") + times(20, "]"), true},
                 {"[/*\"*/" + times(100000, "{},") + "1]", false},
                 {"['\"'," + times(100000, "{},") + "1]", false}};
    for (const auto &one : cases)
        EXPECT_EQ(json_parse(one.text) != nullptr, one.taken) << one.text.substr(0, 40);
    EXPECT_TRUE(json_is_bounded(times(kJsonMaxDepth, "[") + times(kJsonMaxDepth, "]")));
    for (const char *close : {"", "/*]*/"}) // where a bracket closes nothing
        EXPECT_FALSE(json_is_bounded(times(kJsonMaxDepth + 1, std::string("[") + close))) << close;
}

} // namespace
