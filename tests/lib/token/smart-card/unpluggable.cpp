// vpcd's reader, on a cable: when the file QM_UNPLUGGED exists, pcscd hears that nobody answers. All other
// functions are vpcd's own, against which this is linked: dlsym finds them through it.

#include <dlfcn.h>
#include <unistd.h>

#include <cstdlib>

extern "C" long IFDHICCPresence(unsigned long lun) {
    constexpr long kCommunicationError = 612; // IFD_COMMUNICATION_ERROR
    if (const char* unplugged = std::getenv("QM_UNPLUGGED");
        unplugged != nullptr && access(unplugged, F_OK) == 0)
        return kCommunicationError;
    return reinterpret_cast<long (*)(unsigned long)>(dlsym(RTLD_NEXT, "IFDHICCPresence"))(lun);
}
