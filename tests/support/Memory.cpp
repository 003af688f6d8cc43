#include "Memory.h"

#include <cstdint>
#include <cstdio>
#include <fstream>

std::string MemoryFlagsOf(const void* address) {
    const auto wanted = reinterpret_cast<std::uintptr_t>(address);
    std::ifstream maps("/proc/self/smaps");
    bool isThere = false;
    for (std::string line; std::getline(maps, line);) {
        std::uintptr_t begin = 0, end = 0;
        if (std::sscanf(line.c_str(), "%lx-%lx ", &begin, &end) == 2)
            isThere = begin <= wanted && wanted < end;
        if (isThere && line.starts_with("VmFlags:"))
            return line.substr(8) + " ";
    }
    return {};
}
