#pragma once

// Private to ck/.

#include <string>
#include <string_view>

/// `bytes` as text in `encoding`: "Base64" or "Hex" (upper case). Empty for any other encoding.
std::string EncodeText(std::string_view bytes, const char* encoding);

/// Appends what `text` decodes to under `encoding` to `bytes`. White space is skipped; the first other
/// character that cannot be decoded ends the decoding; the whole bytes before it count. Nothing for an
/// unknown encoding.
void AppendDecodedText(std::string& bytes, std::string_view text, const char* encoding);
