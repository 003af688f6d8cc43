#include "HostFolder.h"

#include "QMHostShared.h"
#include "support/ScratchFolder.h"

namespace {

struct HostFolder : ScratchFolder {
    HostFolder() {
        Enter();
        for (const char* written : {"QMSignerExtHostLog.txt", "PKCS7Sign.txt", "CMSSign.txt"})
            std::filesystem::create_symlink("/dev/null", written);
        AppLogLevel = DEBUG;
    }
};

} // namespace

void EnterHostFolder() { static const HostFolder folder; }
