#pragma once

#include <nlohmann/json.hpp>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// A member of a JSON object, as the reference parser has it.
struct ReferenceMember {
    std::string name;
    nlohmann::json value;
};

/// All members of the object in `text`, in order and with those whose name came before; nothing when it is no
/// JSON object.
std::optional<std::vector<ReferenceMember>> MembersOf(std::string_view text);

/// The value of the first member of that name, or null.
const nlohmann::json* FirstOf(const std::vector<ReferenceMember>& members, std::string_view name);

/// `text` as a C string has it.
std::string UpToZero(std::string_view text);
