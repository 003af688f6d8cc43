#pragma once

#include <string>

/// A buffer that is filled byte by byte and read out as text.
class CkBinData {
public:
    void AppendByte(unsigned char byte);

    /// All the bytes as text in `encoding`: "Base64" (padded, one line) or "Hex" (upper case).
    std::string getEncoded(const char* encoding) const;

private:
    std::string bytes_;
};
