#pragma once

#include <sys/types.h>

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

/// What to start, where, and with which variables beside those of this process.
struct Program {
    std::vector<std::string> command;
    std::string folder;
    std::map<std::string, std::string> env;
};

/// A child process with pipes that answers frames with frames. Failures, and a child that is silent for two
/// minutes, throw std::runtime_error.
class Child {
public:
    /// Starts the program. `onStdin`, at most 64 KiB, waits on its standard input from the beginning.
    explicit Child(const Program& program, std::string_view onStdin = {});
    ~Child();
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    /// Sends a frame and waits for its answer, without the length. The answer is valid until the next call.
    /// The seconds that it took are then in LastSeconds().
    std::string_view Ask(std::string_view frame);

    /// Waits for the answer to what was on standard input at the start; LastSeconds() counts from before the
    /// start.
    std::string_view FirstAnswer();

    double LastSeconds() const { return lastSeconds_; }

    /// The monotonic clock, in nanoseconds, at which the last measurement began.
    long long LastBegin() const { return lastBegin_; }

    /// A value of /proc/<pid>/status, such as "VmRSS", in bytes.
    std::size_t Status(const std::string& field) const;

    /// Ends its standard input and waits for a normal end.
    void Finish();

private:
    std::string_view ReadAnswer();
    void Read(std::size_t begin, std::size_t end);

    std::string name_;
    pid_t pid_ = -1;
    int in_ = -1;
    int out_ = -1;
    long long lastBegin_ = 0;
    double lastSeconds_ = 0;
    std::vector<char> answer_;
};

/// Runs a command to its end, without input and output, and returns the seconds that it took. Throws
/// std::runtime_error when its status is not 0.
double RunSeconds(const Program& program);
