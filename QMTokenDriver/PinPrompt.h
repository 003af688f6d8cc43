#pragma once

#include "KeptPin.h"

#include <string>

namespace tokendriver {

/// Asks for a PIN on the terminal, without showing it. False when nothing was typed. The PIN is nowhere but
/// in `pin`. Throws std::runtime_error when the process has no terminal.
bool AskOnTerminal(const std::string& question, KeptPin& pin);

} // namespace tokendriver
