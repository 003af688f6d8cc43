// In libFuzzer's place: runs each input of a corpus once, in the order of their names, so that what was found
// stays mended also where there is no clang. The input that breaks a rule is the last one named.
//
//   corpus_<subject> <folder of the corpus>

#include "support/ScratchFolder.h"

#include <cstdint>
#include <iostream>
#include <set>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

/// For the targets that bring a mutator of their own: nothing is mutated here.
extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t*, std::size_t size, std::size_t) { return size; }

int main(int argc, char** argv) {
    if (argc != 2)
        return 2;
    std::set<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(std::filesystem::absolute(argv[1])))
        files.insert(entry.path());
    for (const std::filesystem::path& file : files) {
        std::cerr << file.filename().string() << std::endl;
        const std::string input = ReadFile(file);
        const std::vector<std::uint8_t> exact(input.begin(), input.end()); // a sanitizer sees where it ends
        LLVMFuzzerTestOneInput(exact.data(), exact.size());
    }
    std::cerr << files.size() << " inputs" << std::endl;
    return files.empty() ? 1 : 0;
}
