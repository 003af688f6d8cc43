#pragma once

// Private to ck/.

#include "CkJsonObject.h"

#include <string>
#include <vector>

struct JsonMember {
    enum class Kind { String, Number, Boolean, Other };

    std::string name;
    std::string text; ///< of a String the decoded text, of all others compact JSON
    Kind kind;
};

struct CkJsonObject::Impl {
    /// The first member of that name, or null.
    const JsonMember* Find(std::string_view name) const;

    std::vector<JsonMember> members;
    std::string error;
};
