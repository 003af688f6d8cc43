#pragma once

#include "QMTokenDriver/KeptPin.h"

#include <string>

namespace tokendriver::tool {

/// Asks for a PIN on the terminal, without showing it. False when nothing was typed. Ctrl-C ends the process,
/// and the terminal is as it was. Throws std::runtime_error when the process has no terminal or the input
/// ends.
bool AskOnTerminal(const std::string& question, KeptPin& pin);

} // namespace tokendriver::tool
