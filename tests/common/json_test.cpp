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
    const std::string channels = "{\"data\":[" + times(191, channel + ",") + channel + "]}";
    for (const std::string &text :
         {channels, "[\"" + times(1000000, ",") + "\"]", "[\"" + times(1000000, "\\\",[") + "\"]",
          "[" + times(16382, "1,") + "1]", "[" + times(2700, "{},") + "1]", times(20, "[") + times(20, "]")})
        EXPECT_NE(json_parse(text), nullptr) << text.substr(0, 40);
    for (const std::string &text : {"[" + times(16383, "1,") + "1]", "[" + times(2800, "{},") + "1]",
                                    "[/*\"*/" + times(100000, "{},") + "1]", "['\"'," + times(100000, "{},") + "1]"})
        EXPECT_TRUE(json_parse(text) == nullptr && json_parse_whole(text) == nullptr) << text.substr(0, 40);
    EXPECT_TRUE(json_is_bounded(times(64, "[") + times(64, "]")) && json_parse_whole("{}x") == nullptr);
    for (const char *close : {"", "/*]*/"}) // where a bracket closes nothing
        EXPECT_FALSE(json_is_bounded(times(65, std::string("[") + close))) << close;
}

TEST(JsonText, IsToTheByteWhatTheLibraryWrites)
{
    std::string all;
    for (int c = 1; c < 256; ++c)
        all += static_cast<char>(c);
    const TJson root(json_object_new_object());
    json_give_text(root.get(), "all", all);
    json_give_text(root.get(), "with \"/\\\n", std::string("a\0b", 3) + all + "end");
    json_give_text(root.get(), "", "");
    for (const char *text : {"{}", "[]", "[[],{}]", "null", "[null,1,-5,true,false,{\"a\":null}]", "0.1",
                             "[1e300,-0.0,NaN]", "9223372036854775807", "18446744073709551615", "-9223372036854775808",
                             "\"\\u00e9\"", "{\"b\":{\"c\":[{\"d\":\"/\"},2.50]},\"a\":1}"}) {
        const TJson value = json_parse(text);
        EXPECT_EQ(json_text(value.get()), json_object_to_json_string(value.get())) << text;
        json_object_object_add(root.get(), text, json_object_get(value.get()));
    }
    EXPECT_EQ(json_text(root.get()), json_object_to_json_string(root.get()));
    EXPECT_EQ(json_text(nullptr), "null");
    EXPECT_THROW(json_give(root.get(), "no value", nullptr), std::bad_alloc);
    EXPECT_THROW(json_give_text(nullptr, "no parent", ""), std::bad_alloc);
    EXPECT_THROW(json_append(root.get(), nullptr), std::bad_alloc);
    EXPECT_THROW(json_append_text(nullptr, "no parent"), std::bad_alloc);
}

} // namespace
