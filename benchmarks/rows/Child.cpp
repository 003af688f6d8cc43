#include "Child.h"

#include "../reference/Clock.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace {

constexpr int kPatienceMilliseconds = 120'000;

/// As much as a user may set; fewer turns for big messages, so that the pipe does not hide the programs.
constexpr int kPipeBytes = 1 << 20;

constexpr long long kNanosecondsPerSecond = 1'000'000'000;

[[noreturn]] void ThrowSystem(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

struct Pipe {
    Pipe() {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0)
            ThrowSystem("pipe");
        read = ends[0];
        write = ends[1];
        fcntl(write, F_SETPIPE_SZ, kPipeBytes);
    }
    int read;
    int write;
};

/// The variables of this process, overridden by `more`, as exec takes them.
class Environment {
public:
    explicit Environment(const std::map<std::string, std::string>& more) {
        for (const auto& [name, value] : more)
            texts_.push_back(name + "=" + value);
        for (char** variable = environ; *variable; ++variable) {
            const std::string text = *variable;
            if (more.count(text.substr(0, text.find('='))) == 0)
                texts_.push_back(text);
        }
        for (std::string& text : texts_)
            pointers_.push_back(text.data());
        pointers_.push_back(nullptr);
    }
    char** Pointers() { return pointers_.data(); }

private:
    std::vector<std::string> texts_;
    std::vector<char*> pointers_;
};

class FileActions {
public:
    FileActions() { posix_spawn_file_actions_init(&actions); }
    ~FileActions() { posix_spawn_file_actions_destroy(&actions); }
    FileActions(const FileActions&) = delete;
    FileActions& operator=(const FileActions&) = delete;
    posix_spawn_file_actions_t actions;
};

pid_t Spawn(const Program& program, FileActions& files) {
    if (!program.folder.empty())
        posix_spawn_file_actions_addchdir_np(&files.actions, program.folder.c_str());
    std::vector<char*> arguments;
    for (const std::string& argument : program.command)
        arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);
    Environment environment(program.env);
    pid_t pid = -1;
    const int error =
        posix_spawnp(&pid, arguments[0], &files.actions, nullptr, arguments.data(), environment.Pointers());
    if (error != 0)
        throw std::system_error(error, std::generic_category(), program.command[0]);
    return pid;
}

void ExpectNormalEnd(pid_t pid, const std::string& name) {
    int status = 0;
    if (waitpid(pid, &status, 0) != pid)
        ThrowSystem("waitpid");
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
        throw std::runtime_error(name + " ended with status " + std::to_string(status));
}

} // namespace

Child::Child(const Program& program, std::string_view onStdin) : name_(program.command[0]) {
    const Pipe toChild, fromChild;
    in_ = toChild.write;
    out_ = fromChild.read;
    if (!onStdin.empty() &&
        write(in_, onStdin.data(), onStdin.size()) != static_cast<ssize_t>(onStdin.size()))
        ThrowSystem("write");
    FileActions files;
    posix_spawn_file_actions_adddup2(&files.actions, toChild.read, STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&files.actions, fromChild.write, STDOUT_FILENO);
    lastBegin_ = NowNanoseconds();
    pid_ = Spawn(program, files);
    close(toChild.read);
    close(fromChild.write);
}

Child::~Child() {
    if (pid_ != -1) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    close(in_);
    close(out_);
}

std::string_view Child::Ask(std::string_view frame) {
    lastBegin_ = NowNanoseconds();
    while (!frame.empty()) {
        const ssize_t written = write(in_, frame.data(), frame.size());
        if (written < 0)
            ThrowSystem(name_ + " does not read");
        frame.remove_prefix(static_cast<std::size_t>(written));
    }
    return ReadAnswer();
}

std::string_view Child::FirstAnswer() { return ReadAnswer(); }

std::string_view Child::ReadAnswer() {
    std::uint32_t length = 0;
    answer_.resize(std::max(answer_.size(), sizeof length));
    Read(0, sizeof length);
    std::memcpy(&length, answer_.data(), sizeof length);
    answer_.resize(std::max<std::size_t>(answer_.size(), length));
    Read(0, length);
    lastSeconds_ = static_cast<double>(NowNanoseconds() - lastBegin_) / kNanosecondsPerSecond;
    return {answer_.data(), length};
}

void Child::Read(std::size_t begin, std::size_t end) {
    while (begin < end) {
        pollfd waiting = {out_, POLLIN, 0};
        if (poll(&waiting, 1, kPatienceMilliseconds) <= 0)
            throw std::runtime_error(name_ + " does not answer");
        const ssize_t count = read(out_, answer_.data() + begin, end - begin);
        if (count <= 0)
            throw std::runtime_error(name_ + " ended without an answer");
        begin += static_cast<std::size_t>(count);
    }
}

std::size_t Child::Status(const std::string& field) const {
    std::ifstream status("/proc/" + std::to_string(pid_) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.compare(0, field.size() + 1, field + ":") == 0)
            return std::stoul(line.substr(field.size() + 1)) * 1024;
    }
    throw std::runtime_error("no " + field + " of " + name_);
}

void Child::Finish() {
    close(in_);
    in_ = -1;
    pollfd waiting = {out_, POLLIN, 0};
    char rest;
    if (poll(&waiting, 1, kPatienceMilliseconds) <= 0 || read(out_, &rest, 1) != 0)
        throw std::runtime_error(name_ + " does not end");
    ExpectNormalEnd(std::exchange(pid_, -1), name_);
}

double RunSeconds(const Program& program) {
    FileActions files;
    posix_spawn_file_actions_addopen(&files.actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&files.actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&files.actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    const long long begin = NowNanoseconds();
    const pid_t pid = Spawn(program, files);
    ExpectNormalEnd(pid, program.command[0]);
    return static_cast<double>(NowNanoseconds() - begin) / kNanosecondsPerSecond;
}
