#pragma once

#include <filesystem>
#include <string>

/// The driver's own log: why a list is empty or what was left out of it, signatures that did not verify, PINs
/// that were forgotten. No PIN, and nothing of what is signed.

namespace tokendriver {

/// $XDG_STATE_HOME/quillmark/tokens.log, or the same below ~/.local/state; empty without a home.
std::filesystem::path TokenLogPath();

/// Where the log's older half is: the same, with ".old" behind it.
std::filesystem::path OldTokenLogPath();

/// Appends a line with the time in front, its control characters made visible. A log that cannot be written
/// changes nothing.
void WriteTokenLog(const std::string& line) noexcept;

/// A text from a token without its control characters, so that it cannot speak to a terminal or end a line.
std::string Printable(std::string text);

} // namespace tokendriver
