// A module that answers anything: whatever codes, lengths, counts and handles it gives, the host's lists stay
// in step, its records valid, and a signature is one only when the module gave one.

#include "FuzzedChoices.h"
#include "HostFolder.h"
#include "LinkedModule.h"
#include "QMNativeMessagingHost.h"
#include "Require.h"
#include "TokenManager.h"
#include "ck/CkJsonObject.h"
#include "support/Bytes.h"

#include <nlohmann/json.hpp>

#include <memory>
#include <stdexcept>

namespace {

CkByteData Bytes(const std::string& text) {
    CkByteData bytes;
    bytes.appendStr(text);
    return bytes;
}

void CheckList() {
    std::vector<std::string> cards;
    bool isWhole = true;
    try {
        cards = tokenManager.BuildTokenCertList();
    } catch (const std::runtime_error&) {
        isWhole = false;
    }
    Require(!isWhole || cards.size() == SelectCertDisplayListCKA_ID.size(), "a CKA_ID per card");
    std::size_t selectable = 0;
    for (int i = 0; const auto record = tokenManager.TokenCertList.ObjectAt(i); ++i) {
        const auto parsed = nlohmann::json::parse(record->emit(), nullptr, false);
        Require(parsed.is_object() && parsed.contains("ChainCert") && parsed.contains("CKA_ID"),
                "every record is JSON and has its key identifier");
        selectable += !parsed["ChainCert"].get<bool>();
    }
    Require(selectable == SelectCertDisplayListCKA_ID.size(), "a record per CKA_ID");
}

void CheckSignature(const OperationResult& result) {
    if (!result.success)
        return;
    const std::size_t size = FromBase64(result.text).size();
    Require(size > 0 && size <= 1024, "a signature is none without bytes");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    EnterHostFolder();
    FuzzedChoices input(data, size);
    linkedModule.certificates.clear();
    for (int more = input.InRange(0, 3); more > 0; --more) {
        std::string id = input.String(12);
        linkedModule.certificates.push_back({std::move(id), input.String(100)});
    }
    // One byte decides whether a call does as it should; when the input is used up they all do.
    linkedModule.answer = [&](CK_RV right) { return input.InRange(0, 7) != 7 ? right : input.Any<CK_RV>(); };
    linkedModule.number = [&](CK_ULONG right) {
        if (input.InRange(0, 7) != 7)
            return right;
        return input.Bool() ? input.InRange<CK_ULONG>(0, 2000) : input.Any<CK_ULONG>();
    };
    linkedModule.PlugIn();

    QMNativeMessagingHost host;
    static_cast<void>(tokenManager.TokenOpenSession());
    for (int steps = 0; steps < 8 && (steps == 0 || input.BytesLeft() > 0); ++steps) {
        CheckList();
        const std::string id =
            SelectCertDisplayListCKA_ID.empty() ? "01" : SelectCertDisplayListCKA_ID.front();
        CheckSignature(host.SignData(id.c_str(), Bytes("a text"), "SHA256"));
        CheckSignature(host.SignHash(id.c_str(), Bytes("AAAA"), "SHA512"));
    }
    linkedModule.answer = [](CK_RV right) { return right; };
    linkedModule.number = [](CK_ULONG right) { return right; };
    return 0;
}
