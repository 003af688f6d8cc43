#include "Inventory.h"

#include "QMTokenDriver/Catalogue.h"
#include "QMTokenDriver/Ckr.h"
#include "QMTokenDriver/ModuleSession.h"
#include "QMTokenDriver/Pkcs11Error.h"

#include <algorithm>
#include <ctime>
#include <iterator>

namespace tokendriver::tool {

namespace {

/// The keys that show, and whether those are all that there are.
struct KeysSeen {
    std::vector<PrivateKey> keys;
    bool areAll;
};

void JudgeKey(const KeysSeen& seen, const Certificate& certificate, CertificateEntry& entry) {
    if (!entry.offer.IsOffered())
        return;
    const bool isSeen =
        std::any_of(seen.keys.begin(), seen.keys.end(),
                    [&certificate](const PrivateKey& key) { return key.id == certificate.Id(); });
    if (isSeen || seen.areAll)
        entry.offer.LeaveOut(KeyObjection(seen.keys, certificate));
    else
        entry.needsLogin = true;
}

CertificateEntry LookAtCertificate(const Certificate& certificate, const KeysSeen& keys) {
    CertificateEntry entry;
    entry.id = HexText(certificate.Id());
    entry.facts = ReadCertificate(certificate.Der());
    entry.offer = certificate.Offered(std::time(nullptr));
    JudgeKey(keys, certificate, entry);
    return entry;
}

bool Login(const ModuleSession& session, TokenEntry& token, const AskForPin& askForPin) {
    if ((token.seen.tokenInfo.flags & CKF_LOGIN_REQUIRED) == 0)
        return true; // nothing is hidden
    KeptPin pin;
    if (!askForPin || !token.objection.empty() || !askForPin(token.seen, pin))
        return false;
    const CK_RV answer = session.Login(CKU_USER, pin.Text());
    token.login = answer == CKR_OK ? LoginOutcome::Done : LoginOutcome::Failed;
    token.loginAnswer = answer == CKR_OK ? "logged in" : DescribeAnswer(answer);
    return answer == CKR_OK;
}

/// The certificate in the driver's list, where it is in it.
const ListedCertificate* InList(const Catalogue& catalogue, const SeenToken& seen,
                                const Certificate& certificate) {
    for (const ListedCertificate& listed : catalogue.Certificates())
        if (listed.token->IsAt(seen) && *listed.certificate == certificate)
            return &listed;
    return nullptr;
}

void LookAtCertificates(TokenEntry& token, const Catalogue& catalogue, const AskForPin& askForPin) {
    const ModuleSession session(*token.seen.backend->functions, token.seen.slot, CKF_SERIAL_SESSION);
    Check(session.Opened());
    const bool isLoggedIn = Login(session, token, askForPin);
    KeysSeen keys{{}, isLoggedIn};
    if (token.seen.verdict == TokenVerdict::CanSign)
        keys.keys = ReadPrivateKeys(session);
    const std::string pinObjection = PinObjection(token.seen.tokenInfo.flags);
    for (const FoundCertificate& found : ReadCertificates(session)) {
        CertificateEntry& entry =
            token.certificates.emplace_back(LookAtCertificate(*found.certificate, keys));
        entry.offer.PutBehind(pinObjection);
        const ListedCertificate* listed = InList(catalogue, token.seen, *found.certificate);
        if (listed == nullptr)
            continue;
        entry.id = listed->idText;
        entry.isFirst = listed == &catalogue.Certificates().front() &&
                        found.certificate->Offered(std::time(nullptr)).IsOffered();
    }
}

TokenEntry LookAtPluggedToken(SeenToken seen, const Catalogue& catalogue, const AskForPin& askForPin) {
    TokenEntry token{std::move(seen), {}, LoginOutcome::NotTried, {}, {}};
    token.objection = ObjectionTo(token.seen);
    if (const Backend* other = catalogue.ShownBy(token.seen))
        token.objection = "it is offered by the module " + other->name;
    if (token.seen.verdict == TokenVerdict::NotReadable || token.seen.verdict == TokenVerdict::NotInitialised)
        return token;
    try {
        LookAtCertificates(token, catalogue, askForPin);
    } catch (const Pkcs11Error& error) {
        token.objection = DescribeAnswer(error.Code());
    }
    return token;
}

ModuleEntry LookAtModule(const Backend& backend, const Catalogue& catalogue, const AskForPin& askForPin) {
    ModuleEntry module{backend.name, backend.path, {}, {}};
    CK_RV failure = CKR_OK;
    const std::vector<CK_SLOT_ID> slots = SlotsOf(backend, false, &failure);
    if (failure != CKR_OK)
        module.objection = DescribeAnswer(failure);
    for (const CK_SLOT_ID slot : slots) {
        SeenToken seen = LookAtToken(backend, slot);
        const CK_SLOT_INFO& info = seen.slotInfo;
        SlotEntry entry{PaddedText(info.slotDescription, std::size(info.slotDescription)), {}};
        if ((info.flags & CKF_TOKEN_PRESENT) != 0)
            entry.token = LookAtPluggedToken(std::move(seen), catalogue, askForPin);
        module.slots.push_back(std::move(entry));
    }
    return module;
}

/// Why a module of the configuration is not among those loaded.
std::string ProbeObjection(const ProbeResult& probed) {
    if (DoesHarm(probed))
        return DescribeHarm(probed);
    return probed.message.empty() ? "not enabled for QMTokenDriver, or not read for this user"
                                  : probed.message;
}

} // namespace

Inventory TakeInventory(const Backends& backends, const std::vector<ProbeResult>& probed,
                        const AskForPin& askForPin) {
    Inventory inventory;
    Catalogue catalogue(backends.Modules());
    try {
        catalogue.Read();
    } catch (const Pkcs11Error&) { // no token can be read: each tells below why
    }
    for (const Backend& backend : backends.Modules())
        inventory.push_back(LookAtModule(backend, catalogue, askForPin));
    for (const SkippedModule& skipped : backends.Skipped())
        inventory.push_back({skipped.name, skipped.path, skipped.reason, {}});
    for (const ProbeResult& result : probed) {
        const bool isListed =
            std::any_of(inventory.begin(), inventory.end(),
                        [&result](const ModuleEntry& module) { return module.name == result.name; });
        if (!isListed)
            inventory.push_back({result.name, {}, ProbeObjection(result), {}});
    }
    return inventory;
}

namespace {

std::vector<const TokenEntry*> TokensOf(const Inventory& inventory) {
    std::vector<const TokenEntry*> tokens;
    for (const ModuleEntry& module : inventory)
        for (const SlotEntry& slot : module.slots)
            if (slot.token)
                tokens.push_back(&*slot.token);
    return tokens;
}

} // namespace

bool HasFailedLogin(const Inventory& inventory) {
    const std::vector<const TokenEntry*> tokens = TokensOf(inventory);
    return std::any_of(tokens.begin(), tokens.end(),
                       [](const TokenEntry* token) { return token->login == LoginOutcome::Failed; });
}

std::size_t CountUsable(const Inventory& inventory) {
    std::size_t usable = 0;
    for (const TokenEntry* token : TokensOf(inventory))
        if (token->objection.empty())
            usable += static_cast<std::size_t>(
                std::count_if(token->certificates.begin(), token->certificates.end(),
                              [](const CertificateEntry& entry) { return entry.CanSign(); }));
    return usable;
}

} // namespace tokendriver::tool
