#pragma once

#include <nlohmann/json.hpp>
#include <p11-kit/pkcs11.h>

#include <string>

/// The lower-case hex digits of `length` bytes at `bytes`; null when `bytes` is null.
nlohmann::json HexOf(const void* bytes, CK_ULONG length);

/// The attributes as given: type, length, and the value as hex (null when the value pointer is null).
nlohmann::json TemplateJson(const CK_ATTRIBUTE* attributes, CK_ULONG count);

/// Appends `entry` as one line to "fake-pkcs11-calls.jsonl" in the working directory.
void AppendCallRecord(const nlohmann::json& entry);
