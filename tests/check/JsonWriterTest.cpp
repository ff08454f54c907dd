#include "check/JsonWriter.h"

#include <gtest/gtest.h>

using check::JsonWriter;
using check::QuotedForJson;

TEST(JsonWriter, WritesMembersInTheirOrder) {
    JsonWriter json;
    json.BeginObject()
        .Text("text", "a")
        .Number("number", 18446744073709551615U)
        .Truth("truth", true)
        .Null("nothing")
        .Texts("texts", {"b", "c"})
        .BeginList("objects")
        .BeginObject()
        .Truth("inner", false)
        .End()
        .NumberElement(1)
        .End()
        .BeginObject("empty")
        .End()
        .Texts("none", {})
        .End();
    EXPECT_EQ(json.Finished(), R"({
  "text": "a",
  "number": 18446744073709551615,
  "truth": true,
  "nothing": null,
  "texts": [
    "b",
    "c"
  ],
  "objects": [
    {
      "inner": false
    },
    1
  ],
  "empty": {},
  "none": []
}
)");
}

TEST(JsonWriter, EscapesWhatJsonDoesNotTake) {
    EXPECT_EQ(QuotedForJson("C:\\a \"b\""), R"("C:\\a \"b\"")");
    EXPECT_EQ(QuotedForJson(std::string_view("\0\n\r\t\x1f\x7f", 6)), R"("\u0000\n\r\t\u001f\u007f")");
}

TEST(JsonWriter, KeepsUtf8AndReplacesWhatIsNone) {
    EXPECT_EQ(QuotedForJson("\xC3\xA4 \xE2\x82\xAC \xF0\x9F\x93\xB7"),
              "\"\xC3\xA4 \xE2\x82\xAC \xF0\x9F\x93\xB7\"");
    EXPECT_EQ(QuotedForJson("\xC3"), "\"\xEF\xBF\xBD\"");
    EXPECT_EQ(QuotedForJson("\x80 a"), "\"\xEF\xBF\xBD a\"");
    EXPECT_EQ(QuotedForJson("\xC0\xAF"), "\"\xEF\xBF\xBD\xEF\xBF\xBD\"");
    EXPECT_EQ(QuotedForJson("\xED\xA0\x80"), "\"\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\"");
    EXPECT_EQ(QuotedForJson("\xF4\x90\x80\x80"), "\"\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\"");
    EXPECT_EQ(QuotedForJson("\xE0\x80\x80"), "\"\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\"");
}
