#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace check {

// Writes one JSON text, indented, its members in the order in which they are given. Every name begins a
// member of the object that is open; without a name a value is an element of the list that is open. Texts are
// UTF-8; what is none is replaced, so that the result always is.
class JsonWriter {
  public:
    JsonWriter& BeginObject();
    JsonWriter& BeginObject(std::string_view name);
    JsonWriter& BeginList(std::string_view name);
    JsonWriter& End();

    JsonWriter& Text(std::string_view name, std::string_view value);
    JsonWriter& Number(std::string_view name, std::uint64_t value);
    JsonWriter& Truth(std::string_view name, bool value);
    JsonWriter& Null(std::string_view name);
    JsonWriter& Texts(std::string_view name, const std::vector<std::string>& values);
    JsonWriter& TextElement(std::string_view value);
    JsonWriter& NumberElement(std::uint64_t value);
    // A finished JSON text as a member.
    JsonWriter& Whole(std::string_view name, std::string_view json);

    // The whole text with a line break at its end, once all that was begun has ended.
    [[nodiscard]] std::string Finished() const { return text_ + "\n"; }

  private:
    void Open(char bracket, char closing);
    void Separate();
    void Name(std::string_view name);

    std::string text_;
    std::string closings_;  // of what is open, the innermost last
    bool isFirst_ = true;   // in what is open
};

// A text in JSON's quotes.
[[nodiscard]] std::string QuotedForJson(std::string_view text);

}  // namespace check
