#include "JsonText.h"

#include "Utf8.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstring>
#include <utility>

namespace {

/// The reason of a syntax error quotes the text around it, at any length.
constexpr std::size_t kMaxReasonSize = 300;

/// Whether the character cannot stand in a JSON string as it is. No bool: GCC 12 vectorises ORs of numbers
/// only.
unsigned char NeedsCare(char c) {
    return static_cast<unsigned char>((c < 0x20) | (c > 0x7E) | (c == '"') | (c == '\\'));
}

/// Whether all of `text` stands in JSON as it is. Takes blocks without a way out of them, to be vectorised.
bool IsPlain(std::string_view text) {
    constexpr std::size_t kBlock = 64;
    for (; text.size() >= kBlock; text.remove_prefix(kBlock)) {
        const char* const block = text.data();
        unsigned char found = 0;
        for (std::size_t i = 0; i < kBlock; ++i)
            found = static_cast<unsigned char>(found | NeedsCare(block[i]));
        if (found)
            return false;
    }
    return std::none_of(text.begin(), text.end(), NeedsCare);
}

/// Receives the parser's events. False from one of them ends the parsing.
class MemberReader final : public nlohmann::json_sax<nlohmann::json> {
public:
    explicit MemberReader(std::vector<JsonMember>& members) : members_(members) {}

    /// Why the parsing ended early.
    const std::string& error() const { return error_; }

    bool null() override { return OnScalar("null", JsonMember::Kind::Other); }
    bool boolean(bool value) override {
        return OnScalar(value ? "true" : "false", JsonMember::Kind::Boolean);
    }
    bool number_integer(number_integer_t value) override { return OnNumber(std::to_string(value)); }
    bool number_unsigned(number_unsigned_t value) override { return OnNumber(std::to_string(value)); }

    bool number_float(number_float_t, const string_t& asWritten) override {
        // The parser has put the locale's decimal point where "." was.
        std::string number = asWritten;
        if (const std::size_t point = number.find_first_not_of("0123456789+-eE"); point != std::string::npos)
            number[point] = '.';
        return OnNumber(std::move(number));
    }

    bool binary(binary_t&) override { return false; } // no event of a JSON text

    bool string(string_t& value) override {
        if (depth_ == 1)
            return AddMember(JsonMember::Kind::String, std::move(value));
        if (depth_ == 0)
            return RefuseRoot();
        BeginNestedValue();
        AppendQuotedJson(nested_, value);
        return true;
    }

    bool key(string_t& name) override {
        if (depth_ == 1) {
            name_ = std::move(name);
        } else {
            BeginNestedValue();
            AppendQuotedJson(nested_, name);
            nested_ += ':';
        }
        return true;
    }

    bool start_object(std::size_t) override {
        if (depth_++ > 0) {
            BeginNestedValue();
            nested_ += '{';
        }
        return true;
    }

    bool start_array(std::size_t) override {
        if (depth_++ == 0)
            return RefuseRoot();
        BeginNestedValue();
        nested_ += '[';
        return true;
    }

    bool end_object() override { return OnEnd('}'); }
    bool end_array() override { return OnEnd(']'); }

    bool parse_error(std::size_t, const std::string&, const nlohmann::json::exception& e) override {
        // "[json.exception.parse_error.101] parse error at line 1, column 2: ..."
        std::string_view reason = e.what();
        reason.remove_prefix(std::min(reason.find("] ") + 2, reason.size()));
        error_ = ValidUtf8(reason.substr(0, kMaxReasonSize));
        return false;
    }

private:
    bool OnNumber(std::string text) { return OnScalar(std::move(text), JsonMember::Kind::Number); }

    bool OnScalar(std::string text, JsonMember::Kind kind) {
        if (depth_ == 0)
            return RefuseRoot();
        if (depth_ == 1)
            return AddMember(kind, std::move(text));
        BeginNestedValue();
        nested_ += text;
        return true;
    }

    bool OnEnd(char bracket) {
        if (--depth_ == 0)
            return true;
        nested_ += bracket;
        return depth_ > 1 || AddMember(JsonMember::Kind::Other, std::exchange(nested_, {}));
    }

    bool RefuseRoot() {
        error_ = "the JSON text holds no object";
        return false;
    }

    bool AddMember(JsonMember::Kind kind, std::string text) {
        members_.push_back({std::move(name_), std::move(text), kind});
        return true;
    }

    void BeginNestedValue() {
        if (!nested_.empty() && std::strchr("[{:", nested_.back()) == nullptr)
            nested_ += ',';
    }

    std::vector<JsonMember>& members_;
    std::string error_;
    std::size_t depth_ = 0;
    std::string name_;   // of the member whose value comes next
    std::string nested_; // the member's value so far, when it is an object or an array
};

} // namespace

std::string ReadJsonMembers(std::string_view json, std::vector<JsonMember>& members) {
    MemberReader reader(members);
    return nlohmann::json::sax_parse(json.begin(), json.end(), &reader) ? std::string() : reader.error();
}

void AppendQuotedJson(std::string& json, std::string_view text) {
    // Base64, which is what long texts are, needs no more than a look at it.
    if (IsPlain(text))
        json.append(1, '"').append(text).append(1, '"');
    else
        json += nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}
