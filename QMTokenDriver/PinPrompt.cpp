#include "PinPrompt.h"

#include <openssl/crypto.h>

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <stdexcept>

namespace tokendriver {

namespace {

/// The longest line that a terminal takes in one (termios(3)).
constexpr std::size_t kMaxLine = 4096;

/// The process's terminal, without echo as long as this lives.
class SilentTerminal {
public:
    SilentTerminal() : terminal_(open("/dev/tty", O_RDWR | O_CLOEXEC)) {
        if (terminal_ < 0 || tcgetattr(terminal_, &before_) != 0)
            throw std::runtime_error("there is no terminal to ask for the PIN on");
        termios silent = before_;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        tcsetattr(terminal_, TCSAFLUSH, &silent);
    }
    ~SilentTerminal() {
        tcsetattr(terminal_, TCSAFLUSH, &before_);
        close(terminal_);
    }
    SilentTerminal(const SilentTerminal&) = delete;
    SilentTerminal& operator=(const SilentTerminal&) = delete;

    void Say(const std::string& text) const {
        if (write(terminal_, text.data(), text.size()) < 0)
            throw std::runtime_error("the terminal is gone");
    }

    /// One line without its end; empty at the end of input.
    void ReadLine(KeptPin& pin) const {
        std::array<CK_UTF8CHAR, kMaxLine> line{};
        ssize_t length = read(terminal_, line.data(), line.size());
        if (length > 0 && line[static_cast<std::size_t>(length) - 1] == '\n')
            --length;
        if (length > 0)
            pin.Keep({line.data(), static_cast<std::size_t>(length)});
        OPENSSL_cleanse(line.data(), line.size());
    }

private:
    int terminal_;
    termios before_{};
};

} // namespace

bool AskOnTerminal(const std::string& question, KeptPin& pin) {
    const SilentTerminal terminal;
    terminal.Say(question);
    terminal.ReadLine(pin);
    terminal.Say("\n");
    return pin.IsKept();
}

} // namespace tokendriver
