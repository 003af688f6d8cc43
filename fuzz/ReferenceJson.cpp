#include "ReferenceJson.h"

#include <algorithm>

using nlohmann::json;

std::optional<std::vector<ReferenceMember>> MembersOf(std::string_view text) {
    std::vector<ReferenceMember> members;
    const auto collect = [&](int depth, json::parse_event_t event, json& parsed) {
        if (depth != 1)
            return true;
        if (event == json::parse_event_t::key)
            members.push_back({parsed.get<std::string>(), nullptr});
        else if (!members.empty() && event != json::parse_event_t::object_start &&
                 event != json::parse_event_t::array_start)
            members.back().value = parsed;
        return true;
    };
    const json root = json::parse(text, collect, false);
    if (!root.is_object())
        return std::nullopt;
    return members;
}

const json* FirstOf(const std::vector<ReferenceMember>& members, std::string_view name) {
    const auto found = std::find_if(members.begin(), members.end(),
                                    [&](const ReferenceMember& member) { return member.name == name; });
    return found == members.end() ? nullptr : &found->value;
}

std::string UpToZero(std::string_view text) { return std::string(text.substr(0, text.find('\0'))); }
