// Texts of a GST return, small and large: the time for a signature, how it grows, and the memory that it
// takes.

#include "Report.h"
#include "Rows.h"
#include "Setting.h"
#include "Verify.h"
#include "support/Bytes.h"

#include <nlohmann/json.hpp>

namespace {

constexpr double kMilli = 1e3;
constexpr std::size_t kKibibyte = 1 << 10, kMebibyte = 1 << 20;

/// A return as it is sent, JSON again, of exactly this many bytes.
std::string GstText(std::size_t size) {
    std::string text = R"({"gstin":"37ABCDE9552F3Z4","fp":"072025","b2b":[)";
    for (unsigned number = 0; text.size() < size; ++number) {
        text += R"({"inum":"S00)" + std::to_string(8400 + number) + R"(","idt":"24-07-2025","val":)" +
                std::to_string(729248 + number * 31) +
                R"(.16,"pos":"06","rchrg":"N","itms":[{"num":1,"itm_det":)" +
                R"({"rt":5,"txval":10000,"iamt":833.33,"csamt":500}}]},)";
    }
    text.resize(size);
    return text;
}

std::string GstRequest(const std::string& text) {
    return FrameOf(nlohmann::ordered_json{
        {"action", "GSTReturnSign"},
        {"hash", text},
        {"hashAlgorithm", "SHA256"},
        {"nonce", "1"}}.dump());
}

/// A program that signs the same text again and again.
class GstSigner {
public:
    GstSigner(const Program& program, const std::string& text) : child_(program), request_(GstRequest(text)) {
        reply_ = child_.Ask(request_);
        Expect(CheckSignedData(ResultOf(reply_)) == text, "a SignedData does not hold the text");
    }

    /// One signature, in milliseconds.
    double operator()() {
        Expect(child_.Ask(request_) == reply_, "a signature differs from the first one");
        return child_.LastSeconds() * kMilli;
    }

    std::size_t PeakMemory() const { return child_.Status("VmHWM"); }

private:
    Child child_;
    std::string request_, reply_;
};

Program Host(const Setting& setting) { return setting.Host("bench-host-chosen", 1); }

Program Reference(const Setting& setting) {
    return setting.Reference(
        "reference-cms", {setting.softhsm, setting.pin, setting.Token(1).signer, "pkcs11:type=private"}, 1);
}

struct Size {
    const char* name;
    std::size_t bytes;
    int pairs;
};

constexpr Size kSizes[] = {{"1 KiB", kKibibyte, 501},
                           {"64 KiB", 64 * kKibibyte, 301},
                           {"512 KiB", 512 * kKibibyte, 101},
                           {"8 MiB", 8 * kMebibyte, 21},
                           {"32 MiB", 32 * kMebibyte, 15}};

} // namespace

void MeasureGst(const Setting& setting, Report& report) {
    for (const Size& size : kSizes) {
        const std::string what = std::string("GST text of ") + size.name + " (ms)";
        if (!report.Wants(what))
            continue;
        const std::string text = GstText(size.bytes);
        GstSigner host(Host(setting), text), reference(Reference(setting), text);
        report.Add({what, MeasureInTurn(2, size.pairs, host, reference), 1.5});
    }
    if (const std::string what = "GST text of 32 MiB, against 8 MiB (ms)"; report.Wants(what)) {
        GstSigner large(Host(setting), GstText(32 * kMebibyte)), small(Host(setting), GstText(8 * kMebibyte));
        report.Add({what, MeasureInTurn(2, 15, large, small), 4.2});
    }
    if (const std::string what = "GST text of 32 MiB, peak memory, against the text (MiB)";
        report.Wants(what)) {
        GstSigner host(Host(setting), GstText(32 * kMebibyte));
        host(); // signs once more
        report.Add({what, {static_cast<double>(host.PeakMemory()) / kMebibyte, 32}, 6});
    }
}
