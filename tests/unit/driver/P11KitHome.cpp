#include "P11KitHome.h"

#include <cstdlib>

P11KitHome::P11KitHome() {
    std::filesystem::create_directories(Folder() / ".config/pkcs11/modules");
    WriteFile(Folder() / ".config/pkcs11/pkcs11.conf", "user-config: only\n");
    setenv("HOME", Folder().c_str(), 1);
    unsetenv("XDG_CONFIG_HOME");
    unsetenv("XDG_STATE_HOME");
}

void P11KitHome::AddModule(const std::string& name, const std::string& sharedObject,
                           const std::string& more) const {
    WriteFile(Folder() / ".config/pkcs11/modules" / (name + ".module"),
              "module: " + sharedObject + '\n' + more);
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
