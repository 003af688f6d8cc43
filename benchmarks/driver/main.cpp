// Measures the host against its references and writes the rows as lines of JSON to standard output.
//
//   bench-driver <setting.json> [<part of a row's name>]

#include "Report.h"
#include "Rows.h"
#include "Setting.h"

#include <csignal>
#include <exception>
#include <iostream>

int main(int argc, char** argv) try {
    if (argc != 2 && argc != 3)
        return 2;
    std::signal(SIGPIPE, SIG_IGN); // a child that is gone is told by write
    const Setting setting(argv[1]);
    Report report(argc == 3 ? argv[2] : "");
    MeasureStart(setting, report);
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
