#pragma once

// Private to ck/: members to and from JSON text.

#include "CkJsonObjectImpl.h"

#include <string>
#include <string_view>
#include <vector>

/// Appends the members of the object in `json` to `members`. Returns why it cannot be read, empty on success;
/// after a failure `members` holds those that came before.
std::string ReadJsonMembers(std::string_view json, std::vector<JsonMember>& members);

/// Appends `text` to `json` as a JSON string in valid UTF-8.
void AppendQuotedJson(std::string& json, std::string_view text);
