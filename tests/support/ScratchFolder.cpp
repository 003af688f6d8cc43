#include "ScratchFolder.h"

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <system_error>

namespace fs = std::filesystem;

ScratchFolder::ScratchFolder() {
    std::string name = (fs::temp_directory_path() / "quillmark-test-XXXXXX").string();
    if (!mkdtemp(name.data()))
        throw std::system_error(errno, std::generic_category(), name);
    folder_ = name;
}

ScratchFolder::~ScratchFolder() {
    if (before_)
        fs::current_path(*before_);
    fs::remove_all(folder_);
}

void ScratchFolder::Enter() {
    before_ = fs::current_path();
    fs::current_path(folder_);
}

std::string ReadFile(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

void WriteFile(const fs::path& file, std::string_view content) {
    std::ofstream(file, std::ios::binary) << content;
}
