// What the host costs before it does anything: its start, its loop, its memory.

#include "Pairs.h"
#include "Report.h"
#include "Rows.h"
#include "Setting.h"
#include "Verify.h"

#include <nlohmann/json.hpp>

namespace {

constexpr double kMilli = 1e3, kMicro = 1e6, kMebibyte = 1 << 20;

std::string EchoRequest(const std::string& text) {
    return Frame(nlohmann::json{{"text", text}, {"nonce", "1"}}.dump());
}

void ExpectEcho(std::string_view reply, const std::string& text) {
    const auto json = nlohmann::json::parse(reply);
    Expect(json.at("status_cd") == 0 && json.at("result") == "QMHost Error: echo: " + text &&
               json.at("nonce") == "1",
           "an echo is wrong");
}

void MeasureStartUp(const Setting& setting, Report& report) {
    const std::string what = "start-up, exec to first reply (ms)";
    if (!report.Wants(what))
        return;
    const Program host = setting.Host("QMChromeExtHost", 1);
    const Program reference = setting.Reference("reference-window", {}, 1);
    const std::string request = EchoRequest("hello");
    const auto start = [&](const Program& program) {
        Child child(program, request);
        const std::string reply(child.FirstAnswer());
        const double seconds = child.LastSeconds();
        if (&program == &host)
            ExpectEcho(reply, "hello");
        child.Finish();
        return seconds * kMilli;
    };
    const Medians medians = MeasureInTurn(
        3, 41, [&] { return start(host); }, [&] { return start(reference); });
    report.Add({what, medians.ours, medians.reference, 1.10});
}

void MeasureMemoryAtRest(const Setting& setting, Report& report) {
    const std::string what = "memory at rest (MiB)";
    if (!report.Wants(what))
        return;
    const Program host = setting.Host("QMChromeExtHost", 1);
    const Program reference = setting.Reference("reference-window", {}, 1);
    const std::string request = EchoRequest("hello");
    const auto resident = [&](const Program& program) {
        Child child(program, request);
        child.FirstAnswer();
        const double bytes = static_cast<double>(child.Status("VmRSS"));
        child.Finish();
        return bytes / kMebibyte;
    };
    const Medians medians = MeasureInTurn(
        1, 15, [&] { return resident(host); }, [&] { return resident(reference); });
    report.Add({what, medians.ours, medians.reference, 1.15});
}

} // namespace

void MeasureStart(const Setting& setting, Report& report) {
    MeasureStartUp(setting, report);
    MeasureMemoryAtRest(setting, report);
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
    const Medians medians = MeasureInTurn(
        500, 5001, [&] { return ask(host, expected); }, [&] { return ask(reference, request.substr(4)); });
    report.Add({what, medians.ours, medians.reference, 1.5});
}
