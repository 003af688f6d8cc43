#pragma once

#include <array>
#include <filesystem>
#include <string>
#include <vector>

/// p11-kit's .module files, where p11-kit itself has no say: which there are, and how to have it look at some
/// of them only. What stands in them is p11-kit's business alone.

namespace tokendriver {

/// The name that `enable-in:` and `disable-in:` in such a file go by.
constexpr const char* kProgramName = "QMTokenDriver";

/// The names ("opensc-pkcs11") of all .module files in p11-kit's directories, sorted. Some of them p11-kit
/// may not use: for this program they are disabled, or the user's own are not read.
std::vector<std::string> ModuleFileNames();

/// As long as it lives, p11-kit finds only the .module files of these names, wherever they are; its other
/// configuration stays. Of several views the last made counts. Throws std::filesystem::filesystem_error.
class ModuleFilesView {
public:
    explicit ModuleFilesView(const std::vector<std::string>& names);
    ~ModuleFilesView();
    ModuleFilesView(const ModuleFilesView&) = delete;
    ModuleFilesView& operator=(const ModuleFilesView&) = delete;

private:
    std::filesystem::path folder_;              ///< private to the user
    std::array<std::filesystem::path, 3> view_; ///< in it, with links to the files
};

} // namespace tokendriver
