#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

/// Reads the next frame of native messaging (four bytes of length, then the message) from standard input.
/// False at its end.
inline bool ReadFrame(std::string& message) {
    std::uint32_t length = 0;
    if (std::fread(&length, sizeof length, 1, stdin) != 1)
        return false;
    message.resize(length);
    return std::fread(message.data(), 1, length, stdin) == length;
}

inline void WriteFrame(std::string_view message) {
    const auto length = static_cast<std::uint32_t>(message.size());
    std::fwrite(&length, sizeof length, 1, stdout);
    std::fwrite(message.data(), 1, length, stdout);
    std::fflush(stdout);
}
