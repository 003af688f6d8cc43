// A signature for a PDF by the host, against the token itself, against what one would script, through the
// driver and without it, and with all that can be logged.

#include "Report.h"
#include "Rows.h"
#include "Setting.h"
#include "Verify.h"
#include "support/Bytes.h"
#include "support/ScratchFolder.h"
#include "support/Verify.h"

#include <nlohmann/json.hpp>

namespace {

constexpr double kMilli = 1e3;

/// A document whose digest holds no zero byte: the host hands its token text, which ends at the first one.
std::string Document() {
    for (int number = 0;; ++number) {
        std::string document = "document " + std::to_string(number);
        if (DigestOf("SHA256", document).find('\0') == std::string::npos)
            return document;
    }
}

std::string SignedAttributes(const std::string& document) {
    return SignedAttributesOf(DigestOf("SHA256", document));
}

/// A host that signs the document again and again.
class PdfHost {
public:
    PdfHost(const Setting& setting, const std::string& document, int logLevel = Setting::kInfo)
        : child_(setting.Host("bench-host-chosen", 1, logLevel)) {
        const std::string record = ResultOf(child_.Ask(FrameOf(R"({"action":"GetSelCertFromToken"})")));
        request_ = FrameOf(nlohmann::json{
            {"action", "PdfSignFromToken"},
            {"hash", ToBase64(DigestOf("SHA256", document))},
            {"hashAlgorithm", "SHA-256"},
            {"certThumbPrint", nlohmann::json::parse(record).at("CertThumbPrint")},
            {"nonce", "1"}}.dump());
        reply_ = child_.Ask(request_);
        CheckSignedData(ResultOf(reply_), &document);
    }

    /// One signature, in milliseconds.
    double operator()() {
        Expect(child_.Ask(request_) == reply_, "a signature differs from the first one");
        return child_.LastSeconds() * kMilli;
    }

private:
    Child child_;
    std::string request_, reply_;
};

/// A bare loop on a module that finds the key by `id` and signs the document's attributes.
class BareLoop {
public:
    BareLoop(const Setting& setting, const std::string& module, const std::string& id,
             const std::string& document)
        : child_(setting.Reference("reference-token",
                                   {module, setting.pin, ToHex(id), ToHex(SignedAttributes(document))}, 1)) {
        signature_ = nlohmann::json::parse(child_.Ask(kRequest)).at("signature");
        CheckSignature(setting.Token(1).signer, SignedAttributes(document), FromHex(signature_));
    }

    /// One signature, in milliseconds.
    double operator()() {
        const auto answer = nlohmann::json::parse(child_.Ask(kRequest));
        Expect(answer.at("signature") == signature_, "a signature differs from the first one");
        return answer.at("ns").get<double>() / 1e9 * kMilli;
    }

private:
    const std::string kRequest = FrameOf(R"("sign")");
    Child child_;
    std::string signature_;
};

const std::string kIdBytes = std::string(19, '\0') + '\x01';

BareLoop ThroughDriver(const Setting& setting, const std::string& document) {
    return {setting, setting.driver, ToHex(kIdBytes), document}; // the driver shows identifiers as hex text
}

void MeasureScripts(const Setting& setting, Report& report, const std::string& document) {
    const std::string file = setting.work / "document", attributes = setting.work / "attributes",
                      output = setting.work / "output";
    WriteFile(file, document);
    WriteFile(attributes, SignedAttributes(document));
    std::string uri = "pkcs11:type=private;id=";
    for (const char byte : kIdBytes)
        uri += "%" + ToHex({&byte, 1});
    uri += "?pin-value=" + setting.pin;

    Program openssl = {{"openssl", "cms",      "-sign",    "-binary", "-md",
                        "sha256",  "-in",      file,       "-signer", setting.Token(1).signer,
                        "-engine", "pkcs11",   "-keyform", "engine",  "-inkey",
                        uri,       "-outform", "DER",      "-out",    output},
                       setting.work,
                       setting.Token(1).env};
    openssl.env["PKCS11_MODULE_PATH"] = setting.softhsm;
    const Program tool = {{"pkcs11-tool", "--module", setting.softhsm, "--login", "--pin", setting.pin,
                           "--sign", "--mechanism", "SHA256-RSA-PKCS", "--id", ToHex(kIdBytes),
                           "--input-file", attributes, "--output-file", output},
                          setting.work,
                          setting.Token(1).env};
    for (const bool cms : {true, false}) {
        const std::string what = std::string("a PDF signature, against ") +
                                 (cms ? "openssl cms -sign" : "pkcs11-tool --sign") + " (ms)";
        if (!report.Wants(what))
            continue;
        PdfHost host(setting, document);
        RunSeconds(cms ? openssl : tool);
        if (cms)
            CheckSignedData(ToBase64(ReadFile(output)), &document);
        else
            CheckSignature(setting.Token(1).signer, SignedAttributes(document), ReadFile(output));
        const auto script = [&] { return RunSeconds(cms ? openssl : tool) * kMilli; };
        report.Add({what, MeasureInTurn(2, 25, host, script), 20, true});
    }
}

} // namespace

void MeasureSigning(const Setting& setting, Report& report) {
    const std::string document = Document();
    if (const std::string what = "a PDF signature, warm, against the bare token (ms)"; report.Wants(what)) {
        PdfHost host(setting, document);
        BareLoop bare = ThroughDriver(setting, document);
        report.Add({what, MeasureInTurn(50, 1001, host, bare), 1.10});
    }
    MeasureScripts(setting, report, document);
    if (const std::string what = "a signature through the driver, against the module (ms)";
        report.Wants(what)) {
        BareLoop driver = ThroughDriver(setting, document);
        BareLoop module(setting, setting.softhsm, kIdBytes, document);
        report.Add({what, MeasureInTurn(50, 1001, driver, module), 1.10});
    }
    if (const std::string what = "a PDF signature, log at DEBUG, against INFO (ms)"; report.Wants(what)) {
        PdfHost debug(setting, document, Setting::kDebug);
        PdfHost info(setting, document);
        report.Add({what, MeasureInTurn(50, 501, debug, info), 1.3});
    }
}
