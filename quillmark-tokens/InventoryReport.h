#pragma once

#include "Inventory.h"

#include <string>

namespace tokendriver::tool {

/// A text from a token without its control characters, so that it cannot speak to the terminal.
std::string Printable(std::string text);

/// The inventory for people: one paragraph per module, and a last line with the sum. What comes from tokens
/// and certificates is printable.
std::string TextReport(const Inventory& inventory);

/// The inventory for machines: one JSON object, UTF-8, with the members
///   "canSign": how many certificates can, as far as was seen
///   "modules": [{ "name", "path", "used", "reason"?, "slots": [{ "description", "token"? }] }]
/// a token being
///   { "label", "manufacturer", "model", "serialNumber", "hardware", "offered", "first", "reason"?, "login"?,
///     "certificates": [{ "id", "offered", "needsLogin", "reasons", "subject"?, "issuer"?, "serialNumber"?,
///                        "thumbprint"?, "notBefore"?, "notAfter"? }] }
std::string JsonReport(const Inventory& inventory);

} // namespace tokendriver::tool
