// quillmark-tokens: tells which certificates the host can sign with, and why not with the others.

#include "Inventory.h"
#include "InventoryReport.h"
#include "PinPrompt.h"
#include "QMTokenDriver/StdoutIsStderr.h"

#include <cstdlib>
#include <exception>
#include <iostream>
#include <string_view>

namespace {

using namespace tokendriver;
using namespace tokendriver::tool;

constexpr const char* kHelp =
    R"(Usage: quillmark-tokens [--json] [--login]

Lists the PKCS#11 modules that p11-kit knows, their slots and tokens, and each certificate on them: whether Quillmark
can sign with it and, if not, why.

  --json    write JSON, for machines
  --login   ask for the PIN of each token on the terminal: most tokens show their private keys after login only
  --help    write this text

Exit status: 0 when at least one certificate can sign, as far as was seen; 1 when none can; 2 on a wrong use, or when
it could not be found out.
)";

constexpr int kNoneCanSign = 1;
constexpr int kNotFoundOut = 2;

struct Options {
    bool isJson = false;
    bool isLogin = false;
    bool isHelp = false;
    std::string_view unknown;
};

Options ReadOptions(int argc, char** argv) {
    Options options;
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i];
        if (argument == "--json")
            options.isJson = true;
        else if (argument == "--login")
            options.isLogin = true;
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
    bool canSign;
};

/// What is on stdout is the report alone, whatever modules write from their start to their end.
Told LookAround(const Options& options) {
    const StdoutIsStderr quiet;
    std::vector<ProbeResult> probed = ProbeEachAlone();
    std::vector<ProbeResult> harmful = probed;
    std::erase_if(harmful, [](const ProbeResult& result) { return !DoesHarm(result); });
    const Backends backends(harmful);
    const Inventory inventory = TakeInventory(backends, probed, options.isLogin ? AskForPinOf : AskForPin());
    return {options.isJson ? JsonReport(inventory) : TextReport(inventory), CountUsable(inventory) > 0};
}

int Tell(const Options& options) {
    SwitchOffCoreDumps();
    const Told told = LookAround(options);
    std::cout << told.report << std::flush;
    return told.canSign ? EXIT_SUCCESS : kNoneCanSign;
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
        return Tell(options);
    } catch (const std::exception& error) {
        std::cerr << "quillmark-tokens: " << error.what() << '\n';
        return kNotFoundOut;
    }
}
