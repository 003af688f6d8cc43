#pragma once

#include "Inventory.h"

#include <string>

namespace tokendriver::tool {

/// The inventory for people: one paragraph per module, and a last line with the sum. What comes from tokens
/// and certificates is printable.
std::string TextReport(const Inventory& inventory);

/// The inventory for machines: one JSON object, UTF-8, with the members
///   "canSign": how many certificates can, as far as was seen
///   "modules": [{ "name", "path", "used", "reason"?, "slots": [{ "description", "token"? }] }]
/// a token being
///   { "label", "manufacturer", "model", "serialNumber", "hardware", "offered", "reason"?, "login"?, "pin"?,
///     "certificateCount", "certificates": [{ "id", "offered", "canSign", "first", "needsLogin", "reasons",
///     "subject"?, "issuer"?, "serialNumber"?, "thumbprint"?, "notBefore"?, "notAfter"? }] }
/// The certificates of a token that cannot sign, as p11-kit's own with all certificate authorities, are there
/// with `all` only.
std::string JsonReport(const Inventory& inventory, bool all);

} // namespace tokendriver::tool
