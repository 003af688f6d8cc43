// quillmark-tokens: tells which certificates the host can sign with, and why not with the others.

#include "Inventory.h"
#include "InventoryReport.h"
#include "PinPrompt.h"
#include "QMTokenDriver/StdoutIsStderr.h"
#include "QMTokenDriver/TokenLog.h"

#include <cstdlib>
#include <exception>
#include <fstream>
#include <iostream>
#include <string_view>

namespace {

using namespace tokendriver;
using namespace tokendriver::tool;

constexpr const char* kHelp =
    R"(Usage: quillmark-tokens [--json] [--all] [--login]
       quillmark-tokens --log

Lists the PKCS#11 modules that p11-kit knows, their slots and tokens, and each certificate on them: whether Quillmark
can sign with it and, if not, why.

  --json    write JSON, for machines
  --all     in it, also the certificates of tokens that cannot sign, as the system's certificate authorities
  --login   ask for the PIN of each token on the terminal: most tokens show their private keys after login only
  --log     write what the token driver has noted: why a list was empty or what was left out of it, signatures
            that did not verify, PINs that were forgotten and why
  --help    write this text

Exit status: 0 when at least one certificate can sign, as far as was seen; 1 when none can; 2 on a wrong use, or when
it could not be found out; 3 when a login failed, as with a wrong PIN.
)";

constexpr int kNoneCanSign = 1;
constexpr int kNotFoundOut = 2;
constexpr int kLoginFailed = 3;

struct Options {
    bool isJson = false;
    bool isAll = false;
    bool isLogin = false;
    bool isLog = false;
    bool isHelp = false;
    std::string_view unknown;
};

Options ReadOptions(int argc, char** argv) {
    Options options;
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i];
        if (argument == "--json")
            options.isJson = true;
        else if (argument == "--all")
            options.isAll = true;
        else if (argument == "--login")
            options.isLogin = true;
        else if (argument == "--log")
            options.isLog = true;
        else if (argument == "--help" || argument == "-h")
            options.isHelp = true;
        else
            options.unknown = argument;
    }
    return options;
}

bool AskForPinOf(const SeenToken& token, KeptPin& pin) {
    const std::string name = "\"" + Printable(token.identity.label) + "\"";
    if ((token.tokenInfo.flags & CKF_PROTECTED_AUTHENTICATION_PATH) != 0) {
        std::cerr << "Please type the PIN of " << name << " on its reader." << std::endl;
        return true;
    }
    const bool isLastTry = (token.tokenInfo.flags & CKF_USER_PIN_FINAL_TRY) != 0;
    return AskOnTerminal("PIN of " + name + (isLastTry ? ", ONE TRY IS LEFT" : "") + " (nothing: no login): ",
                         pin);
}

struct Told {
    std::string report;
    int status;
};

/// What is on stdout is the report alone, whatever modules write from their start to their end.
Told LookAround(const Options& options) {
    const StdoutIsStderr quiet;
    std::vector<ProbeResult> probed = ProbeEachAlone();
    std::vector<ProbeResult> harmful = probed;
    std::erase_if(harmful, [](const ProbeResult& result) { return !DoesHarm(result); });
    const Backends backends(harmful);
    const Inventory inventory = TakeInventory(backends, probed, options.isLogin ? AskForPinOf : AskForPin());
    int status = CountUsable(inventory) > 0 ? EXIT_SUCCESS : kNoneCanSign;
    if (HasFailedLogin(inventory))
        status = kLoginFailed;
    return {options.isJson ? JsonReport(inventory, options.isAll) : TextReport(inventory), status};
}

int Tell(const Options& options) {
    SwitchOffCoreDumps();
    const Told told = LookAround(options);
    std::cout << told.report << std::flush;
    return told.status;
}

/// The older half first.
int TellLog() {
    for (const auto& path : {OldTokenLogPath(), TokenLogPath()})
        if (std::ifstream log(path); log && log.peek() != std::ifstream::traits_type::eof())
            std::cout << log.rdbuf();
    return EXIT_SUCCESS;
}

} // namespace

int main(int argc, char** argv) {
    const Options options = ReadOptions(argc, argv);
    if (!options.unknown.empty()) {
        std::cerr << "quillmark-tokens: unknown option '" << options.unknown
                  << "'; see quillmark-tokens --help\n";
        return kNotFoundOut;
    }
    if (options.isHelp) {
        std::cout << kHelp;
        return EXIT_SUCCESS;
    }
    try {
        return options.isLog ? TellLog() : Tell(options);
    } catch (const std::exception& error) {
        std::cerr << "quillmark-tokens: " << error.what() << '\n';
        return kNotFoundOut;
    }
}
