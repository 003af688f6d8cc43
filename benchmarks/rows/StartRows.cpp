// What the host costs before it does anything: its start, its loop, its memory.

#include "Report.h"
#include "Rows.h"
#include "Setting.h"
#include "Verify.h"
#include "support/Bytes.h"

#include <nlohmann/json.hpp>

namespace {

constexpr double kMilli = 1e3, kMicro = 1e6, kMebibyte = 1 << 20;

std::string EchoRequest(const std::string& text) {
    return FrameOf(nlohmann::json{{"text", text}, {"nonce", "1"}}.dump());
}

void ExpectEcho(std::string_view reply, const std::string& text) {
    const auto json = nlohmann::json::parse(reply);
    Expect(json.at("status_cd") == 0 && json.at("result") == "QMHost Error: echo: " + text &&
               json.at("nonce") == "1",
           "an echo is wrong");
}

double StartMilliseconds(const Child& child) { return child.LastSeconds() * kMilli; }

double MebibytesAtRest(const Child& child) { return static_cast<double>(child.Status("VmRSS")) / kMebibyte; }

/// A row of starts up to the first reply, each measured before it ends.
void MeasureStarts(const Setting& setting, Report& report, const Row& row, int warmUp, int pairs,
                   double (*measure)(const Child&)) {
    if (!report.Wants(row.what))
        return;
    const Program host = setting.Host("QMChromeExtHost", 1);
    const Program reference = setting.Reference("reference-window", {}, 1);
    const std::string request = EchoRequest("hello");
    const auto start = [&](const Program& program) {
        Child child(program, request);
        const std::string reply(child.FirstAnswer());
        const double measured = measure(child);
        if (&program == &host)
            ExpectEcho(reply, "hello");
        child.Finish();
        return measured;
    };
    report.Add({row.what,
                MeasureInTurn(
                    warmUp, pairs, [&] { return start(host); }, [&] { return start(reference); }),
                row.target});
}

} // namespace

void MeasureStart(const Setting& setting, Report& report) {
    MeasureStarts(setting, report, {"start-up, exec to first reply (ms)", {}, 1.10}, 3, 41,
                  StartMilliseconds);
    MeasureStarts(setting, report, {"memory at rest (MiB)", {}, 1.15}, 1, 15, MebibytesAtRest);
}

void MeasureEcho(const Setting& setting, Report& report) {
    const std::string what = "round trip of a 1 KiB echo (us)";
    if (!report.Wants(what))
        return;
    Child host(setting.Host("QMChromeExtHost", 1));
    Child reference(setting.Reference("reference-echo", {}, 1));
    const std::string text(1024, 'x');
    const std::string request = EchoRequest(text);
    ExpectEcho(host.Ask(request), text);
    const std::string expected(host.Ask(request));
    const auto ask = [&](Child& child, std::string_view wanted) {
        Expect(child.Ask(request) == wanted, "an echo is wrong");
        return child.LastSeconds() * kMicro;
    };
    report.Add({what,
                MeasureInTurn(
                    500, 5001, [&] { return ask(host, expected); },
                    [&] { return ask(reference, request.substr(4)); }),
                1.5});
}
