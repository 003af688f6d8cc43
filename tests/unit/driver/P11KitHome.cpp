#include "P11KitHome.h"

#include <cstdlib>
#include <fstream>
#include <stdexcept>

namespace fs = std::filesystem;

P11KitHome::P11KitHome() {
    std::string name = (fs::temp_directory_path() / "quillmark-driver-test-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr)
        throw std::runtime_error("no temporary folder");
    folder_ = name;
    fs::create_directories(folder_ / ".config/pkcs11/modules");
    std::ofstream(folder_ / ".config/pkcs11/pkcs11.conf") << "user-config: only\n";
    setenv("HOME", folder_.c_str(), 1);
    unsetenv("XDG_CONFIG_HOME");
    unsetenv("XDG_STATE_HOME");
}

P11KitHome::~P11KitHome() { fs::remove_all(folder_); }

void P11KitHome::AddModule(const std::string& name, const std::string& sharedObject,
                           const std::string& more) const {
    std::ofstream(folder_ / ".config/pkcs11/modules" / (name + ".module"))
        << "module: " << sharedObject << '\n'
        << more;
}

ScopedVariable::ScopedVariable(const char* name, const std::string& value) : name_(name) {
    if (const char* before = getenv(name))
        before_ = before;
    setenv(name, value.c_str(), 1);
}

ScopedVariable::~ScopedVariable() {
    if (before_)
        setenv(name_, before_->c_str(), 1);
    else
        unsetenv(name_);
}
