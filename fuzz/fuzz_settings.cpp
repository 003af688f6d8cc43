// Any settings file: what the reference parser reads out of it is what the globals become, and the log says
// whether it was read.

#include "HostFolder.h"
#include "MainSelectCertificate.h"
#include "QMHostShared.h"
#include "ReferenceJson.h"
#include "Require.h"
#include "support/ScratchFolder.h"

namespace {

constexpr char kLog[] = "QMSignerExtHostLog.txt";
constexpr char kDefaultPath[] = "./QMTokenDriver.so";

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    EnterHostFolder();
    std::filesystem::remove(kLog);
    const std::string text(reinterpret_cast<const char*>(data), size);
    WriteFile("QMHostSettings.json", text);
    AppLogLevel = INFO;
    TokenDriverFullPath = kDefaultPath;

    LoadQMHostSettings();

    const std::string log = ReadFile(kLog);
    const auto members = MembersOf(text);
    const bool failed =
        log.find(" Cound not Load Settings from QMHostSettings.json - QMHostSettings.json: ") !=
        std::string::npos;
    const bool loaded = log.find(" Loading Settings from QMHostSettings.json\n") != std::string::npos;
    Require(failed == !members && loaded == members.has_value(), "the log says whether the file was read");

    const nlohmann::json* level = members ? FirstOf(*members, "AppLogLevel") : nullptr;
    if (!level)
        Require(AppLogLevel == INFO, "without a level it stays");
    else if (level->is_number_integer() && level->get<double>() == static_cast<int>(level->get<double>()))
        Require(AppLogLevel == level->get<int>(), "a level is taken as it is");

    const nlohmann::json* path = members ? FirstOf(*members, "TokenDriverFullPath") : nullptr;
    if (path && path->is_string() && !UpToZero(path->get<std::string>()).empty())
        Require(TokenDriverFullPath == UpToZero(path->get<std::string>()), "a path is taken as it is");
    else if (!path || path->is_string())
        Require(TokenDriverFullPath == kDefaultPath, "without a path it stays");
    return 0;
}
