// JSON, written piece by piece: as little of it as lists for other programs need.
//
//   JsonText json;
//   json.Open('{').Key("gaps").Open('[');  ...  json.Close(']').Close('}');
#pragma once

#include <cstdint>
#include <string>

namespace card {

class JsonText {
  public:
    JsonText& Open(char bracket) {
        Separate();
        text_ += bracket;
        first_ = true;
        return *this;
    }
    JsonText& Close(char bracket) {
        text_ += bracket;
        first_ = false;
        return *this;
    }
    JsonText& Key(const char* name) {
        Quoted(name);
        text_ += ':';
        first_ = true;  // no comma between a key and its value
        return *this;
    }
    JsonText& Value(const std::string& value) {
        Quoted(value);
        return *this;
    }
    JsonText& Value(const char* value) { return Value(std::string(value)); }
    JsonText& Value(uint64_t value) { return Plain(std::to_string(value)); }
    JsonText& Value(uint32_t value) { return Plain(std::to_string(value)); }
    JsonText& Value(int32_t value) { return Plain(std::to_string(value)); }
    JsonText& Value(bool value) { return Plain(value ? "true" : "false"); }
    JsonText& Plain(const std::string& value) {
        Separate();
        text_ += value;
        return *this;
    }
    template <typename Value_>
    JsonText& Field(const char* name, const Value_& value) {
        return Key(name).Value(value);
    }

    const std::string& Text() const { return text_; }

  private:
    void Separate() {
        if (!first_) text_ += ',';
        first_ = false;
    }
    // Nothing in it can end a script element.  Bytes above 0x7E stay; who reads them replaces those that are no UTF-8.
    void Quoted(const std::string& value) {
        static constexpr char kDigits[] = "0123456789abcdef";
        Separate();
        text_ += '"';
        for (const char c : value) {
            const auto byte = static_cast<unsigned char>(c);
            if (byte < 0x20 || c == '"' || c == '\\' || c == '<') {
                text_ += "\\u00";
                text_ += kDigits[byte >> 4];
                text_ += kDigits[byte & 15];
            } else {
                text_ += c;
            }
        }
        text_ += '"';
    }

    std::string text_;
    bool first_ = true;
};

}  // namespace card
