#pragma once

#include "P11KitHome.h"

#include <string>

/// A pinentry that answers as a test says, first in PATH as long as this lives, on a display that is none.
class ScriptedPinentry {
public:
    explicit ScriptedPinentry(const P11KitHome& home);

    /// What GETPIN is answered with from now on: lines of the protocol, as "D 1234\nOK".
    void Answer(const std::string& lines) const;

    /// What it does after its greeting from now on, in the shell's words.
    void Behave(const std::string& commands) const;

    /// Everything that it was told, in all its runs.
    std::string Told() const;

private:
    std::filesystem::path folder_;
    ScopedVariable path_;
    ScopedVariable display_;
};
