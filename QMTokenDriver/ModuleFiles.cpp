#include "ModuleFiles.h"

#include <p11-kit/p11-kit.h>

#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <set>
#include <system_error>

namespace tokendriver {

namespace {

namespace fs = std::filesystem;

/// The directories that p11-kit reads: the packages', the system's, the user's. A file of the same name in
/// two of them is one module.
using Directories = std::array<fs::path, 3>;

constexpr const char* kModuleFile = ".module";

/// p11-kit's rule for "~/.config" (pkcs11.conf(5)).
fs::path UserConfigDirectory() {
    if (const char* config = secure_getenv("XDG_CONFIG_HOME"); config != nullptr && *config != '\0')
        return config;
    if (const char* home = secure_getenv("HOME"); home != nullptr && *home != '\0')
        return fs::path(home) / ".config";
    const passwd* user = getpwuid(getuid());
    return user == nullptr ? fs::path() : fs::path(user->pw_dir) / ".config";
}

/// p11-kit's own words for them; it expands the "~/.config".
constexpr std::array<const char*, 3> kBuiltIn = {QM_P11KIT_PACKAGE_MODULES, QM_P11KIT_SYSTEM_MODULES,
                                                 "~/.config/pkcs11/modules"};

/// Where they are for this user now.
Directories StandardDirectories() {
    return {kBuiltIn[0], kBuiltIn[1], UserConfigDirectory() / "pkcs11" / "modules"};
}

/// Has p11-kit read these. It keeps the pointers until the next call.
void ReadFrom(const std::array<const char*, 3>& directories) {
    p11_kit_override_system_files(nullptr, nullptr, directories[0], directories[1], directories[2]);
}

/// As it was at first. These pointers stay with p11-kit also when the driver is unloaded: so they are never
/// freed.
void ReadFromBuiltIn() {
    static const std::array<const char*, 3> kept = {strdup(kBuiltIn[0]), strdup(kBuiltIn[1]),
                                                    strdup(kBuiltIn[2])};
    ReadFrom(kept);
}

/// Among the temporary files or, where none can be written, in the folder of the user's login.
fs::path MakePrivateFolder() {
    std::error_code missing;
    const char* runtime = secure_getenv("XDG_RUNTIME_DIR");
    for (const fs::path& parent : {fs::temp_directory_path(missing), fs::path(runtime ? runtime : "")}) {
        std::string name = (parent / "quillmark-modules-XXXXXX").string();
        if (parent.is_absolute() && mkdtemp(name.data()) != nullptr)
            return name;
    }
    throw fs::filesystem_error("no folder for links", std::error_code(errno, std::generic_category()));
}

} // namespace

std::vector<std::string> ModuleFileNames() {
    std::set<std::string> names;
    for (const fs::path& directory : StandardDirectories()) {
        std::error_code unreadable; // a directory that is not there has no files
        for (const fs::directory_entry& entry : fs::directory_iterator(directory, unreadable))
            if (entry.path().extension() == kModuleFile)
                names.insert(entry.path().stem().string());
    }
    return {names.begin(), names.end()};
}

ModuleFilesView::ModuleFilesView(const std::vector<std::string>& names) : folder_(MakePrivateFolder()) {
    const Directories standard = StandardDirectories();
    for (std::size_t i = 0; i < view_.size(); ++i) {
        view_[i] = folder_ / std::to_string(i);
        fs::create_directory(view_[i]);
        for (const std::string& name : names)
            if (fs::exists(standard[i] / (name + kModuleFile)))
                fs::create_symlink(standard[i] / (name + kModuleFile), view_[i] / (name + kModuleFile));
    }
    ReadFrom({view_[0].c_str(), view_[1].c_str(), view_[2].c_str()});
}

ModuleFilesView::~ModuleFilesView() {
    ReadFromBuiltIn();
    std::error_code ignored; // links left behind in a temporary folder do no harm
    fs::remove_all(folder_, ignored);
}

} // namespace tokendriver
