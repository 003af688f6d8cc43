#include "Pinentry.h"

#include "Attributes.h"
#include "TokenLog.h"

#include <openssl/crypto.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace tokendriver {

namespace {

/// What pinentry may take in all: it keeps the user's time itself, unless it hangs, and needs some to start
/// and to tell of its end.
constexpr std::chrono::milliseconds PatienceFor(std::chrono::seconds timeToAnswer) {
    return timeToAnswer * 10 / 9;
}

/// The longest line of the Assuan protocol, line feed included.
constexpr std::size_t kMaxLine = 1002;

/// What pinentry answers when the user gives no PIN, without the part that says whose error it is: cancelled,
/// "cancel all", too late (libgpg-error's GPG_ERR_CANCELED, GPG_ERR_FULLY_CANCELED, GPG_ERR_TIMEOUT).
constexpr std::array kNoPin = {99UL, 198UL, 62UL};
constexpr unsigned long kErrorCode = 0xffff;

/// Lines before an answer: comments and status.
constexpr int kMaxLines = 100;

/// The value of an environment variable; empty when it is not set.
std::string_view Environment(const char* variable) {
    const char* value = std::getenv(variable);
    return value == nullptr ? std::string_view() : value;
}

bool IsSet(const char* variable) { return !Environment(variable).empty(); }

std::string PathOfPinentry() {
    std::string_view folders = IsSet("PATH") ? Environment("PATH") : "/usr/bin:/bin";
    while (!folders.empty()) {
        const std::string folder(folders.substr(0, folders.find(':')));
        folders.remove_prefix(std::min(folder.size() + 1, folders.size()));
        std::string path = folder + "/pinentry";
        if (folder.starts_with('/') && faccessat(AT_FDCWD, path.c_str(), X_OK, AT_EACCESS) == 0)
            return path;
    }
    return {};
}

/// A text as an argument of an Assuan command.
std::string Escaped(std::string_view text) {
    std::string escaped;
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if (character != '%' && byte >= 0x20)
            escaped += character;
        else
            escaped += '%' + HexText({&byte, 1});
    }
    return escaped;
}

int HexDigit(char character) {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    const auto at = kDigits.find(static_cast<char>(std::toupper(static_cast<unsigned char>(character))));
    return at == std::string_view::npos ? 0 : static_cast<int>(at);
}

/// A pinentry that runs, and the socket that is its input and output. It ends with this process, and with
/// this object.
class Pinentry {
    using Clock = std::chrono::steady_clock;

public:
    Pinentry(const std::string& path, std::chrono::milliseconds patience)
        : deadline_(Clock::now() + patience) {
        std::array<int, 2> ends{};
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0)
            return;
        process_ = fork();
        if (process_ == 0)
            Run(path.c_str(), ends[1]);
        close(ends[1]);
        socket_ = ends[0];
    }
    ~Pinentry() {
        OPENSSL_cleanse(buffer_.data(), buffer_.size());
        GiveUp();
        if (process_ <= 0)
            return;
        kill(process_, SIGKILL); // it is done, or it hangs: nothing of it is worth waiting for
        while (waitpid(process_, nullptr, 0) < 0 && errno == EINTR)
            continue;
    }
    Pinentry(const Pinentry&) = delete;
    Pinentry& operator=(const Pinentry&) = delete;

    /// Whether the line was answered with OK; data of the answer goes into `pin`.
    bool Says(const std::string& line, KeptPin* pin = nullptr) {
        const std::string sent = line + '\n';
        return socket_ >= 0 &&
               send(socket_, sent.data(), sent.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(sent.size()) &&
               IsOk(pin);
    }

    /// Reads up to the line that says OK or ERR. Where none comes, it is given up.
    bool IsOk(KeptPin* pin = nullptr) {
        error_.clear();
        for (int lines = 0; lines < kMaxLines; ++lines) {
            const std::optional<std::span<char>> line = ReadLine();
            if (!line)
                break;
            const std::string_view text(line->data(), line->size());
            if (text == "OK" || text.starts_with("OK "))
                return true;
            if (text.starts_with("ERR ")) {
                error_ = text.substr(4);
                return false;
            }
            if (text.starts_with("D ") && pin != nullptr)
                KeepData(line->subspan(2), *pin);
        }
        GiveUp();
        return false;
    }

    /// The error that was answered last: its number and words; empty: none.
    const std::string& Error() const { return error_; }

private:
    [[noreturn]] static void Run(const char* path, int socket) {
        prctl(PR_SET_PDEATHSIG, SIGKILL); // as browsers end the host: without a word
        for (const int signal : {SIGTERM, SIGINT, SIGPIPE, SIGCHLD})
            std::signal(signal, SIG_DFL);
        dup2(socket, STDIN_FILENO);
        dup2(socket, STDOUT_FILENO);
        close_range(STDERR_FILENO + 1, ~0U, 0);
        execl(path, "pinentry", nullptr);
        _exit(127);
    }

    /// From now on nothing is sent and nothing awaited.
    void GiveUp() {
        if (socket_ >= 0)
            close(std::exchange(socket_, -1));
    }

    /// Whether there is something to read before the time is over.
    bool HasInput() const {
        if (socket_ < 0)
            return false; // poll would wait for it
        pollfd input{socket_, POLLIN, 0};
        int ready = -1;
        do {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline_ - Clock::now()).count();
            ready = poll(&input, 1, static_cast<int>(std::max(left, decltype(left){0})));
        } while (ready < 0 && errno == EINTR);
        return ready == 1;
    }

    /// Without its line feed; nothing at the end, or when it is too long. Valid until the next.
    std::optional<std::span<char>> ReadLine() {
        for (std::size_t length = 0; length < buffer_.size(); ++length) {
            // One by one, so that nothing of the next line is read.
            if (!HasInput() || read(socket_, &buffer_[length], 1) != 1)
                return std::nullopt;
            if (buffer_[length] == '\n')
                return std::span(buffer_).first(length);
        }
        return std::nullopt;
    }

    /// Undoes the escapes in place.
    static void KeepData(std::span<char> data, KeptPin& pin) {
        std::size_t length = 0;
        for (std::size_t at = 0; at < data.size(); ++at) {
            const bool isEscape = data[at] == '%' && at + 2 < data.size();
            data[length++] =
                isEscape ? static_cast<char>(HexDigit(data[at + 1]) << 4 | HexDigit(data[at + 2])) : data[at];
            at += isEscape ? 2 : 0;
        }
        pin.Keep({reinterpret_cast<const CK_UTF8CHAR*>(data.data()), length});
    }

    const Clock::time_point deadline_;
    pid_t process_ = -1;
    int socket_ = -1;
    std::string error_;
    std::array<char, kMaxLine> buffer_{};
};

std::string Question(const SeenToken& token) {
    std::string question = "Please type the PIN of the token \"" + Printable(token.identity.label) +
                           "\", serial number " + Printable(token.identity.serialNumber) +
                           ", to sign with a certificate on it.";
    if ((token.tokenInfo.flags & CKF_USER_PIN_FINAL_TRY) != 0)
        question += "\n\nOne try is left: a wrong PIN now locks the token.";
    else if ((token.tokenInfo.flags & CKF_USER_PIN_COUNT_LOW) != 0)
        question += "\n\nA wrong PIN was typed since the last right one.";
    return question;
}

/// What it is told about the terminal or display. One that does not know an option goes without it.
void SetOptions(Pinentry& pinentry) {
    pinentry.Says("OPTION grab");
    for (const auto& [option, variable] :
         {std::pair{"ttyname", "GPG_TTY"}, {"ttytype", "TERM"}, {"lc-ctype", "LANG"}, {"display", "DISPLAY"}})
        if (IsSet(variable))
            pinentry.Says(std::string("OPTION ") + option + "=" + Escaped(Environment(variable)));
}

CK_RV CannotAsk(const SeenToken& token, const std::string& reason) {
    WriteTokenLog("no PIN for the token \"" + token.identity.label + "\": " + reason);
    return CKR_USER_NOT_LOGGED_IN;
}

} // namespace

CK_RV AskByPinentry(const SeenToken& token, KeptPin& pin, std::chrono::seconds timeToAnswer) {
    const std::string path = PathOfPinentry();
    if (path.empty())
        return CannotAsk(token, "there is no pinentry in PATH");
    if (!(IsSet("DISPLAY") || IsSet("WAYLAND_DISPLAY") || IsSet("GPG_TTY")))
        return CannotAsk(token, "there is no display");
    Pinentry pinentry(path, PatienceFor(timeToAnswer));
    if (!pinentry.IsOk())
        return CannotAsk(token, path + " does not answer");
    SetOptions(pinentry);
    pinentry.Says("SETTIMEOUT " + std::to_string(timeToAnswer.count()));
    pinentry.Says("SETTITLE Quillmark");
    pinentry.Says("SETPROMPT PIN:");
    if (!pinentry.Says("SETDESC " + Escaped(Question(token))))
        return CannotAsk(token, path + " does not show the question");
    if (pinentry.Says("GETPIN", &pin))
        return pin.IsKept() ? CKR_OK : CKR_FUNCTION_CANCELED;
    pin.Forget();
    const unsigned long code = std::strtoul(pinentry.Error().c_str(), nullptr, 10) & kErrorCode;
    if (std::find(kNoPin.begin(), kNoPin.end(), code) != kNoPin.end())
        return CKR_FUNCTION_CANCELED;
    return CannotAsk(token, path + " says: " + pinentry.Error());
}

} // namespace tokendriver
