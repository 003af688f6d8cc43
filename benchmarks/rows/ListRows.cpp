// The list of certificates: from the request to the cards on the screen, how it grows, and through the
// driver.

#include "Report.h"
#include "Rows.h"
#include "Setting.h"
#include "Verify.h"
#include "support/Bytes.h"

#include <nlohmann/json.hpp>

#include <cstdio>

namespace {

constexpr double kMilliPerNano = 1e-6;

struct Shown {
    long long at = 0;
    long long paused = 0;
    int cards = 0;
};

/// What the answer of the host of host/CardsShown.cpp tells.
Shown ToldByHost(const std::string& reply) {
    const std::string result = nlohmann::json::parse(reply).at("result");
    Shown shown;
    const std::size_t begin = result.find("shown=");
    Expect(begin != std::string::npos &&
               std::sscanf(result.c_str() + begin, "shown=%lld paused=%lld cards=%d", &shown.at,
                           &shown.paused, &shown.cards) == 3,
           "the host did not show its cards");
    return shown;
}

Shown ToldByReference(const std::string& reply) {
    const auto json = nlohmann::json::parse(reply);
    return {json.at("shown"), json.at("paused"), json.at("cards")};
}

/// Starts the host, has it show the token's certificates, and returns the milliseconds less the pauses.
double ShowCards(const Program& program, Shown (*told)(const std::string&), int certificates) {
    Child child(program);
    child.Ask(FrameOf("{}")); // now it is up
    const Shown shown = told(std::string(child.Ask(FrameOf(R"({"action":"GetSelCertFromToken"})"))));
    Expect(shown.cards == certificates, "a certificate is missing in the list");
    child.Finish();
    return static_cast<double>(shown.at - child.LastBegin() - shown.paused) * kMilliPerNano;
}

auto ListByHost(const Setting& setting, int certificates) {
    return [&setting, certificates] {
        return ShowCards(setting.Host("bench-host-cards", certificates), ToldByHost, certificates);
    };
}

auto ListByReference(const Setting& setting, int certificates) {
    return [&setting, certificates] {
        return ShowCards(setting.Reference("reference-list", {setting.driver}, certificates), ToldByReference,
                         certificates);
    };
}

/// A bare loop that lists the certificates of the token with 100.
class BareList {
public:
    BareList(const Setting& setting, const std::string& module)
        : child_(setting.Reference("reference-token", {module, setting.pin, "", ""}, kCertificates)) {}

    /// One listing, in milliseconds.
    double operator()() {
        const auto answer = nlohmann::json::parse(child_.Ask(FrameOf(R"("list")")));
        Expect(answer.at("count") == kCertificates, "a certificate is missing in the list");
        return answer.at("ns").get<double>() * kMilliPerNano;
    }

private:
    static constexpr int kCertificates = 100;
    Child child_;
};

} // namespace

void MeasureLists(const Setting& setting, Report& report) {
    for (const int certificates : {1, 10, 100, 1000}) {
        const std::string what =
            "list of " + std::to_string(certificates) + " certificates, request to cards (ms)";
        if (!report.Wants(what))
            continue;
        report.Add(
            {what,
             MeasureInTurn(1, 15, ListByHost(setting, certificates), ListByReference(setting, certificates)),
             1.5});
    }
    // What grows no faster than linearly takes at most ten times as long for ten times as many.
    if (const std::string what = "list of 1000 certificates, against 100 (ms)"; report.Wants(what)) {
        report.Add({what, MeasureInTurn(1, 15, ListByHost(setting, 1000), ListByHost(setting, 100)), 10});
    }
    if (const std::string what = "100 certificates through the driver, against the module (ms)";
        report.Wants(what)) {
        BareList driver(setting, setting.driver), module(setting, setting.softhsm);
        report.Add({what, MeasureInTurn(5, 101, driver, module), 1.10});
    }
}
