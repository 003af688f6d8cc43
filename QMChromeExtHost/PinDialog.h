#pragma once

#include <string>

/// Asks for the PIN in a modal dialog and puts it into `pin`, empty when the user gave none. Leaves no other
/// copy of ours behind.
void AskTokenPin(std::string& pin);
