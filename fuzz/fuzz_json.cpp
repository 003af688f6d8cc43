// JSON text -> CkJsonObject -> JSON text: the same members as the reference parser has, and each of them as
// text and as a number.

#include "ReferenceJson.h"
#include "Require.h"
#include "ck/CkJsonObject.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdlib>

using nlohmann::json;

namespace {

int ClampToInt(double value) {
    return static_cast<int>(std::trunc(std::clamp<double>(value, INT_MIN, INT_MAX)));
}

/// The decimal number that `text` is, 0 when it is none.
int WholeNumber(const std::string& text) {
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    const bool isNumber = end == text.c_str() + text.size() && std::isfinite(value);
    // What strtod takes besides: white space and a plus in front, and hexadecimal digits.
    const bool isDecimal =
        text.find_first_not_of("0123456789-.") != 0 && text.find_first_of("xX") == text.npos;
    return isNumber && isDecimal ? ClampToInt(value) : 0;
}

int ExpectedInt(const json& value) {
    if (value.is_string())
        return WholeNumber(value.get<std::string>());
    if (value.is_boolean())
        return value.get<bool>();
    return value.is_number() ? ClampToInt(value.get<double>()) : 0;
}

void CheckMember(const CkJsonObject& object, const std::string& name, const json& value) {
    const std::string text = object.stringOf(name);
    if (value.is_string())
        Require(text == UpToZero(value.get<std::string>()), "a string is its own text");
    else
        Require(json::parse(text, nullptr, false) == value, "another value is its JSON text");
    Require(object.IntOf(name) == ExpectedInt(value), "a value as a number");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    const auto members = MembersOf(text);
    CkJsonObject object;
    Require(object.Load(text) == members.has_value(), "what is a JSON object loads, and nothing else");
    Require(object.lastErrorText().empty() == members.has_value(), "a failure has a reason, a success none");
    if (!members) {
        Require(object.emit() == "{}", "what did not load left nothing");
        return 0;
    }

    for (std::size_t i = 0; i < members->size(); ++i) {
        const std::string& name = (*members)[i].name;
        const json* first = FirstOf(*members, name);
        const auto index = static_cast<std::size_t>(object.IndexOf(name));
        Require(index <= i && &(*members)[index].value == first, "a name is the first member of that name");
        CheckMember(object, name, *first);
    }

    const std::string emitted = object.emit();
    const auto again = MembersOf(emitted);
    Require(again && again->size() == members->size(), "what is emitted has the same members");
    for (std::size_t i = 0; i < members->size(); ++i)
        Require((*again)[i].name == (*members)[i].name && (*again)[i].value == (*members)[i].value,
                "what is emitted has the same values");
    CkJsonObject reloaded;
    Require(reloaded.Load(emitted) && reloaded.emit() == emitted, "emitting is stable");
    const CkJsonObject copy(reloaded);
    Require(copy.emit() == emitted, "a copy is the same");
    return 0;
}
