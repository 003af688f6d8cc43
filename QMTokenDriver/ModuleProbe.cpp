#include "ModuleProbe.h"

#include "ModuleFiles.h"

#include <p11-kit/p11-kit.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <list>
#include <utility>

namespace tokendriver {

namespace {

using Clock = std::chrono::steady_clock;

/// What the child reports at its end, in one write: a dot, then p11-kit's message.
constexpr std::size_t kMaxReport = 1024;

/// The child is a copy of the host. Nothing of the host may notice it: its descriptors are closed (the
/// display, the browser's pipes), its signal handlers are off, and it ends without running what is registered
/// for the end.
/// Nor does it stay when the host goes, as browsers end it: without a word.
void LeaveTheHost(int report) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    dup2(report, STDIN_FILENO);
    close_range(STDIN_FILENO + 1, ~0U, 0);
    open("/dev/null", O_RDWR); // becomes 1
    open("/dev/null", O_RDWR); // becomes 2
    for (const int signal : {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT, SIGTERM, SIGCHLD, SIGPIPE})
        std::signal(signal, SIG_DFL);
}

[[noreturn]] void LoadAndReport(int report) {
    LeaveTheHost(report);
    p11_kit_set_progname(kProgramName);
    CK_FUNCTION_LIST** const modules = p11_kit_modules_load(nullptr, 0);
    const char* message = p11_kit_message();
    std::string text = ".";
    text += message == nullptr ? "" : message;
    for (CK_FUNCTION_LIST** module = modules; module != nullptr && *module != nullptr; ++module)
        p11_kit_module_initialize(*module);
    text.resize(std::min(text.size(), kMaxReport));
    const ssize_t written = write(STDIN_FILENO, text.data(), text.size());
    _exit(written < 0);
}

/// A child that loads what p11-kit's configuration has at its birth.
class Child {
public:
    Child() {
        std::array<int, 2> ends{};
        if (pipe2(ends.data(), O_CLOEXEC) != 0)
            return;
        process_ = fork();
        if (process_ == 0)
            LoadAndReport(ends[1]);
        close(ends[1]);
        report_ = ends[0];
    }
    ~Child() {
        if (process_ > 0) {
            kill(process_, SIGKILL);
            while (waitpid(process_, nullptr, 0) < 0 && errno == EINTR)
                continue;
        }
        if (report_ >= 0)
            close(report_);
    }

    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    ProbeResult WaitUntil(Clock::time_point deadline, std::string name) const {
        ProbeResult result{std::move(name), ProbeOutcome::Unknown, {}};
        if (process_ < 0)
            return result;
        if (!IsReadable(deadline)) {
            result.outcome = ProbeOutcome::Hung;
            return result;
        }
        std::array<char, kMaxReport> text{};
        const ssize_t length = read(report_, text.data(), text.size());
        result.outcome = length > 0 ? ProbeOutcome::Fine : ProbeOutcome::Crashed;
        if (length > 1)
            result.message.assign(text.data() + 1, static_cast<std::size_t>(length) - 1);
        return result;
    }

private:
    bool IsReadable(Clock::time_point deadline) const {
        pollfd waited{report_, POLLIN, 0};
        for (;;) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
            const int ready = poll(&waited, 1, static_cast<int>(std::max(left.count(), 0L)));
            if (ready >= 0 || errno != EINTR)
                return ready > 0;
        }
    }

    pid_t process_ = -1;
    int report_ = -1;
};

} // namespace

bool DoesHarm(const ProbeResult& probed) {
    return probed.outcome == ProbeOutcome::Hung || probed.outcome == ProbeOutcome::Crashed;
}

std::string DescribeHarm(const ProbeResult& probed) {
    const char* of = probed.isOfAll ? ", it or another module: there is no folder to find out which" : "";
    if (probed.outcome == ProbeOutcome::Hung)
        return "hangs when it is loaded (given up after " + std::to_string(kProbeTime.count()) + " seconds)" +
               of;
    return probed.outcome == ProbeOutcome::Crashed ? std::string("crashes when it is loaded") + of
                                                   : "crashes when it is loaded with the other modules";
}

ProbeResult ProbeAllTogether(std::chrono::milliseconds limit) {
    return Child().WaitUntil(Clock::now() + limit, {});
}

namespace {

std::vector<ProbeResult> ProbeEachInAView(std::chrono::milliseconds limit) {
    struct Alone {
        explicit Alone(const std::string& moduleName) : name(moduleName), view({moduleName}) {}
        std::string name;
        ModuleFilesView view; // outlives the child, which reads it
        Child child;
    };
    const Clock::time_point deadline = Clock::now() + limit;
    std::list<Alone> running;
    for (const std::string& name : ModuleFileNames())
        running.emplace_back(name);
    std::vector<ProbeResult> results;
    for (const Alone& alone : running)
        results.push_back(alone.child.WaitUntil(deadline, alone.name));
    return results;
}

} // namespace

std::vector<ProbeResult> ProbeEachAlone(std::chrono::milliseconds limit) {
    try {
        return ProbeEachInAView(limit);
    } catch (const std::filesystem::filesystem_error&) {
        ProbeResult ofAll = ProbeAllTogether(limit);
        ofAll.isOfAll = true;
        std::vector<ProbeResult> results;
        for (std::string& name : ModuleFileNames()) {
            ofAll.name = std::move(name);
            results.push_back(ofAll);
        }
        return results;
    }
}

} // namespace tokendriver
