// quillmark-tokens: tells which certificates the host can sign with, and why not with the others.

#include "Inventory.h"
#include "InventoryReport.h"
#include "PinPrompt.h"
#include "QMTokenDriver/TokenLog.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <iostream>
#include <memory>
#include <string_view>

namespace {

using namespace tokendriver;
using namespace tokendriver::tool;

constexpr const char* kHelp =
    R"(Usage: quillmark-tokens [--json] [--all] [--login] [--verbose]
       quillmark-tokens --log

Lists the PKCS#11 modules that p11-kit knows, their slots and tokens, and each certificate on them: whether Quillmark
can sign with it and, if not, why.

  --json    write JSON, for machines
  --all     in it, also the certificates of tokens that cannot sign, as the system's certificate authorities
  --login   ask for the PIN of each token on the terminal: most tokens show their private keys after login only
  --verbose let the modules' own words through, on standard error; what they wrote while the signing program ran is
            told by quillmark-doctor
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
    bool isVerbose = false;
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
        else if (argument == "--verbose")
            options.isVerbose = true;
        else if (argument == "--log")
            options.isLog = true;
        else if (argument == "--help" || argument == "-h")
            options.isHelp = true;
        else
            options.unknown = argument;
    }
    return options;
}

/// Standard output and standard error for the tool alone. What modules write there, from their start to their
/// exit handlers, is seen on standard error with --verbose, and nowhere without.
class OwnStreams {
    struct Close {
        void operator()(std::FILE* stream) const { std::fclose(stream); }
    };
    using Stream = std::unique_ptr<std::FILE, Close>;

    static Stream Keep(int descriptor) {
        Stream kept(fdopen(fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1), "w"));
        if (kept)
            return kept;
        std::perror("quillmark-tokens");
        std::exit(kNotFoundOut);
    }

public:
    explicit OwnStreams(bool isVerbose) : out(Keep(STDOUT_FILENO)), err(Keep(STDERR_FILENO)) {
        dup2(isVerbose ? STDERR_FILENO : open("/dev/null", O_WRONLY | O_CLOEXEC), STDOUT_FILENO);
        dup2(STDOUT_FILENO, STDERR_FILENO);
    }

    const Stream out;
    const Stream err;
};

bool AskForPinOf(const OwnStreams& own, const SeenToken& token, KeptPin& pin) {
    const std::string name = "\"" + Printable(token.identity.label) + "\"";
    if ((token.tokenInfo.flags & CKF_PROTECTED_AUTHENTICATION_PATH) != 0) {
        std::fprintf(own.err.get(), "Please type the PIN of %s on its reader.\n", name.c_str());
        std::fflush(own.err.get());
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

Told LookAround(const Options& options, const OwnStreams& own) {
    std::vector<ProbeResult> probed = ProbeEachAlone();
    std::vector<ProbeResult> harmful = probed;
    std::erase_if(harmful, [](const ProbeResult& result) { return !DoesHarm(result); });
    const Backends backends(harmful);
    const auto ask = [&own](const SeenToken& token, KeptPin& pin) { return AskForPinOf(own, token, pin); };
    const Inventory inventory = TakeInventory(backends, probed, options.isLogin ? AskForPin(ask) : nullptr);
    int status = CountUsable(inventory) > 0 ? EXIT_SUCCESS : kNoneCanSign;
    if (HasFailedLogin(inventory))
        status = kLoginFailed;
    return {options.isJson ? JsonReport(inventory, options.isAll) : TextReport(inventory), status};
}

int Tell(const Options& options, const OwnStreams& own) {
    SwitchOffCoreDumps();
    const Told told = LookAround(options, own);
    std::fputs(told.report.c_str(), own.out.get());
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
    if (options.isLog)
        return TellLog();
    const OwnStreams own(options.isVerbose);
    try {
        return Tell(options, own);
    } catch (const std::exception& error) {
        std::fprintf(own.err.get(), "quillmark-tokens: %s\n", error.what());
        return kNotFoundOut;
    }
}
