#include "ScriptedPinentry.h"

#include <cstdlib>
#include <fstream>
#include <sstream>

namespace fs = std::filesystem;

namespace {

fs::path MakeFolder(const fs::path& home) {
    fs::create_directories(home / "bin");
    return home / "bin";
}

} // namespace

ScriptedPinentry::ScriptedPinentry(const P11KitHome& home)
    : folder_(MakeFolder(home.Folder())), path_("PATH", folder_.string() + ":" + std::getenv("PATH")),
      display_("DISPLAY", ":no-display") {
    Behave("while read -r line; do\n"
           "  echo \"$line\" >> told\n"
           "  case $line in\n"
           "    GETPIN) cat answer ;;\n"
           "    *) echo OK ;;\n"
           "  esac\n"
           "done\n");
    Answer("OK");
}

void ScriptedPinentry::Behave(const std::string& commands) const {
    std::ofstream(folder_ / "pinentry") << "#!/bin/sh\ncd '" << folder_.string() << "'\n"
                                        << "echo 'OK Please go ahead'\n"
                                        << commands;
    fs::permissions(folder_ / "pinentry", fs::perms::owner_all);
}

void ScriptedPinentry::Answer(const std::string& lines) const {
    std::ofstream(folder_ / "answer") << lines << '\n';
}

std::string ScriptedPinentry::Told() const {
    std::ostringstream text;
    text << std::ifstream(folder_ / "told").rdbuf();
    return text.str();
}
