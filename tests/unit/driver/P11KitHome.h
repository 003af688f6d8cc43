#pragma once

#include "support/ScratchFolder.h"

#include <filesystem>
#include <optional>
#include <string>

/// A home folder with a p11-kit configuration of its own: as long as it lives, p11-kit (0.23.21 and later)
/// finds in this process the modules added here and no others. It needs a user other than root, whose
/// configuration p11-kit ignores.
class P11KitHome {
public:
    P11KitHome();

    /// Adds <name>.module for the shared object; `more` are further lines, as "disable-in: QMTokenDriver\n".
    void AddModule(const std::string& name, const std::string& sharedObject,
                   const std::string& more = {}) const;

    /// The folder, empty but for the configuration; removed at the end.
    const std::filesystem::path& Folder() const { return folder_.Path(); }

private:
    ScratchFolder folder_;
};

/// An environment variable of this process that has another value as long as this lives.
class ScopedVariable {
public:
    ScopedVariable(const char* name, const std::string& value);
    ~ScopedVariable();
    ScopedVariable(const ScopedVariable&) = delete;
    ScopedVariable& operator=(const ScopedVariable&) = delete;

private:
    const char* name_;
    std::optional<std::string> before_;
};

/// As long as this lives, none of the folders for temporary files can be written.
struct NoFolderToWriteTo {
    ScopedVariable temporary{"TMPDIR", "/proc"};
    ScopedVariable runtime{"XDG_RUNTIME_DIR", "/proc"};
};
