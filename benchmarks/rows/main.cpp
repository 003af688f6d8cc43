// Measures the host against its references and writes the rows as lines of JSON to standard output.
//
//   bench-rows <setting.json> [<part of a row's name>]

#include "Report.h"
#include "Rows.h"
#include "Setting.h"
#include "support/Bytes.h"

#include <sched.h>

#include <cerrno>
#include <csignal>
#include <exception>
#include <iostream>
#include <system_error>

namespace {

/// From here on this process and what it starts share one core: a round trip then measures the programs, not
/// how long a sleeping core takes to wake up.
void StayOnOneCore() {
    cpu_set_t core;
    CPU_ZERO(&core);
    CPU_SET(static_cast<std::size_t>(sched_getcpu()), &core);
    if (sched_setaffinity(0, sizeof core, &core) != 0)
        throw std::system_error(errno, std::generic_category(), "sched_setaffinity");
}

/// The first GTK program on a new display loads OpenGL to choose a visual for all others. No measurement
/// shall meet that.
void LetAWindowBeTheFirst(const Setting& setting) {
    Child window(setting.Reference("reference-window", {}, 1), FrameOf("{}"));
    window.FirstAnswer();
    window.Finish();
}

} // namespace

int main(int argc, char** argv) try {
    if (argc != 2 && argc != 3)
        return 2;
    std::signal(SIGPIPE, SIG_IGN); // a child that is gone is told by write
    const Setting setting(argv[1]);
    LetAWindowBeTheFirst(setting);
    Report report(argc == 3 ? argv[2] : "");
    MeasureStart(setting, report);
    StayOnOneCore();
    MeasureEcho(setting, report);
    MeasureSigning(setting, report);
    MeasureGst(setting, report);
    MeasureLists(setting, report);
    if (report.IsEmpty())
        throw std::runtime_error("no row has such a name");
    return 0;
} catch (const std::exception& e) {
    std::cerr << "error: " << e.what() << std::endl;
    return 1;
}
