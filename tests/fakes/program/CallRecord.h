#pragma once

#include "FakeToken.h"

#include <nlohmann/json.hpp>

/// What came in: bytes in hex, an attribute by its type, its length and its value (null when the pointer is).
/// Without `isPinShown` no copy is made of a PIN.
nlohmann::json ArgumentsOf(const Call& call, bool isPinShown);

/// Appends `entry` as one line to "fake-pkcs11-calls.jsonl" in the working directory.
void AppendCallRecord(const nlohmann::json& entry);
