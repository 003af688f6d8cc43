#pragma once

#include <chrono>
#include <string>
#include <vector>

/// Modules are other people's code: some hang when they are loaded, waiting for a service that is not there,
/// and some crash. Loaded into the host, such a module would take the user's window along. So they are loaded
/// in a forked child first, where that does not matter.

namespace tokendriver {

/// How long a module may take to load and initialise. Those of card readers need up to two or three seconds.
constexpr std::chrono::seconds kProbeTime{10};

/// How long all of them together may take before it is asked which one it is. Nothing is lost when that was
/// early.
constexpr std::chrono::seconds kTogetherTime{3};

/// How it went with the modules in the child.
enum class ProbeOutcome {
    Fine,    ///< they came to an end, though some may have failed, as they then do here
    Hung,    ///< not within the time
    Crashed, ///< the child ended before its end
    Unknown, ///< there is no child to be had
};

struct ProbeResult {
    std::string name; ///< of the .module file; empty for all together
    ProbeOutcome outcome = ProbeOutcome::Unknown;
    std::string message;  ///< why p11-kit loaded none; empty also when the module is not for this program
    bool isOfAll = false; ///< it is the result of all together, of which this module is one
};

/// Loads all modules of p11-kit's configuration in one child. Costs little more than loading them.
ProbeResult ProbeAllTogether(std::chrono::milliseconds limit = kTogetherTime);

/// Loads each alone, all at the same time, each in a child of its own: finds out which one it is that does
/// harm. Where no folder can be written, which that takes, all get the result that they have together.
std::vector<ProbeResult> ProbeEachAlone(std::chrono::milliseconds limit = kProbeTime);

/// Whether a module with this result must not be loaded.
bool DoesHarm(const ProbeResult& probed);

/// "hangs when it is loaded (...)": why a module with this result is not used.
std::string DescribeHarm(const ProbeResult& probed);

} // namespace tokendriver
