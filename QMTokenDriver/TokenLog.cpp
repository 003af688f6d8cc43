#include "TokenLog.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <ctime>
#include <system_error>

namespace tokendriver {

namespace {

namespace fs = std::filesystem;

/// With the older half no more than half a megabyte: some thousand lines.
constexpr off_t kMaxLogBytes = 256L * 1024;

std::string Now() {
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    std::array<char, 32> text{};
    gmtime_r(&now, &parts);
    std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ ", &parts);
    return text.data();
}

/// Only the user reads it; nor is it written through a link that someone has put there.
int OpenLog() {
    const fs::path path = TokenLogPath();
    std::error_code failure;
    if (path.empty())
        return -1;
    if (fs::create_directories(path.parent_path(), failure))
        chmod(path.parent_path().c_str(), S_IRWXU);
    struct stat now {};
    if (stat(path.c_str(), &now) == 0 && now.st_size > kMaxLogBytes)
        fs::rename(path, OldTokenLogPath(), failure);
    return open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK,
                S_IRUSR | S_IWUSR);
}

} // namespace

fs::path TokenLogPath() {
    if (const char* state = secure_getenv("XDG_STATE_HOME"); state != nullptr && *state == '/')
        return fs::path(state) / "quillmark/tokens.log";
    const char* home = secure_getenv("HOME");
    return home == nullptr || *home == '\0' ? fs::path()
                                            : fs::path(home) / ".local/state/quillmark/tokens.log";
}

fs::path OldTokenLogPath() { return TokenLogPath() += ".old"; }

void WriteTokenLog(const std::string& line) noexcept {
    try {
        const std::string text = Now() + Printable(line) + '\n';
        const int log = OpenLog();
        if (log < 0)
            return;
        [[maybe_unused]] const ssize_t ignored = write(log, text.data(), text.size());
        close(log);
    } catch (const std::exception&) { // no memory, no log
    }
}

std::string Printable(std::string text) {
    std::replace_if(
        text.begin(), text.end(),
        [](unsigned char character) { return character < 0x20 || character == 0x7f; }, '?');
    return text;
}

} // namespace tokendriver
