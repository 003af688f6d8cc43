#pragma once

#include <string>

/// What the kernel says of the mapping that `address` lies in, two letters for each, with blanks around them:
/// " lo " is locked, " dd " left out of core dumps, " dc " not copied on fork (proc(5), VmFlags of smaps).
/// Empty when there is no such mapping.
std::string MemoryFlagsOf(const void* address);
