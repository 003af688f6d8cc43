#include "ScratchFolder.h"

#include "QMHostShared.h"

#include <cstdlib>
#include <filesystem>
#include <string>

namespace {

class ScratchFolder {
public:
    ScratchFolder() {
        std::string name = (std::filesystem::temp_directory_path() / "quillmark-fuzz-XXXXXX").string();
        folder_ = mkdtemp(name.data());
        std::filesystem::current_path(folder_);
        for (const char* written : {"QMSignerExtHostLog.txt", "PKCS7Sign.txt", "CMSSign.txt"})
            std::filesystem::create_symlink("/dev/null", written);
        AppLogLevel = DEBUG;
    }
    ~ScratchFolder() { std::filesystem::remove_all(folder_); }
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

private:
    std::filesystem::path folder_;
};

} // namespace

void EnterScratchFolder() { static const ScratchFolder folder; }
