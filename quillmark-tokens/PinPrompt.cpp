#include "PinPrompt.h"

#include <openssl/crypto.h>
#include <openssl/ui.h>

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstring>
#include <stdexcept>

namespace tokendriver::tool {

namespace {

/// Longer than any PIN, and what libcrypto takes.
constexpr std::size_t kMaxLine = 1024;

/// UI_process's answer after Ctrl-C, which libcrypto has taken note of and done nothing about.
constexpr int kInterrupted = -2;

/// Without one, libcrypto would read standard input.
bool HasTerminal() {
    const int terminal = open("/dev/tty", O_RDWR | O_CLOEXEC);
    if (terminal >= 0)
        close(terminal);
    return terminal >= 0;
}

} // namespace

bool AskOnTerminal(const std::string& question, KeptPin& pin) {
    if (!HasTerminal())
        throw std::runtime_error("there is no terminal to ask for the PIN on");
    std::array<char, kMaxLine> line{};
    const int answer = UI_UTIL_read_pw_string(line.data(), kMaxLine, question.c_str(), 0);
    if (answer == 0)
        pin.Keep({reinterpret_cast<const CK_UTF8CHAR*>(line.data()), std::strlen(line.data())});
    OPENSSL_cleanse(line.data(), line.size());
    if (answer == kInterrupted)
        std::raise(SIGINT);
    if (answer != 0)
        throw std::runtime_error("no PIN was read");
    return pin.IsKept();
}

} // namespace tokendriver::tool
