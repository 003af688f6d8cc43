#include "Offered.h"

#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <utility>

namespace tokendriver {

namespace {

std::time_t TimeOf(const ASN1_TIME* time) {
    std::tm parts{};
    return ASN1_TIME_to_tm(time, &parts) == 1 ? timegm(&parts) : 0;
}

Bytes WithoutLeadingZeros(Bytes number) {
    number.erase(number.begin(),
                 std::find_if(number.begin(), number.end(), [](CK_BYTE byte) { return byte != 0; }));
    return number;
}

Bytes ModulusOf(const EVP_PKEY* key) {
    BIGNUM* number = nullptr;
    if (key == nullptr || EVP_PKEY_get_base_id(key) != EVP_PKEY_RSA ||
        EVP_PKEY_get_bn_param(key, OSSL_PKEY_PARAM_RSA_N, &number) != 1)
        return {};
    const OpenSslPtr<BIGNUM> owned(number);
    Bytes modulus(static_cast<std::size_t>(BN_num_bytes(number)));
    BN_bn2bin(number, modulus.data());
    return modulus;
}

/// Ready for verifying blocks; null when libcrypto cannot.
OpenSslPtr<EVP_PKEY_CTX> VerificationBy(EVP_PKEY* key) {
    OpenSslPtr<EVP_PKEY_CTX> verification(EVP_PKEY_CTX_new(key, nullptr));
    const bool isReady = verification && EVP_PKEY_verify_init(verification.get()) == 1 &&
                         EVP_PKEY_CTX_set_rsa_padding(verification.get(), RSA_PKCS1_PADDING) == 1;
    return isReady ? std::move(verification) : nullptr;
}

/// The key usages by which the host tells users' certificates from others: all but certificate and CRL
/// signing.
constexpr std::uint32_t kUsesOfUsers = KU_DIGITAL_SIGNATURE | KU_NON_REPUDIATION | KU_KEY_ENCIPHERMENT |
                                       KU_DATA_ENCIPHERMENT | KU_KEY_AGREEMENT | KU_ENCIPHER_ONLY;

struct Use {
    Standing standing;
    const char* objection; ///< null when it is meant to sign
};

Use UseOf(X509* certificate) {
    const std::uint32_t usage = X509_get_key_usage(certificate); // all bits when there is no such extension
    if ((X509_get_extension_flags(certificate) & EXFLAG_KUSAGE) == 0)
        return {Standing::Chain, "key usage: it has none, and passes for a chain certificate"};
    if ((usage & kUsesOfUsers) == 0)
        return {Standing::Chain, "chain certificate"};
    if ((usage & (KU_DIGITAL_SIGNATURE | KU_NON_REPUDIATION)) == 0)
        return {Standing::LeftOut, "key usage: not for signatures"};
    return {Standing::Valid, nullptr};
}

template <class Number>
std::optional<Number> NumberIn(const std::optional<Bytes>& value) {
    if (!value || value->size() != sizeof(Number))
        return std::nullopt;
    Number number{};
    std::memcpy(&number, value->data(), sizeof number);
    return number;
}

} // namespace

std::string Offer::ReasonsText() const {
    std::string text;
    for (const std::string& reason : reasons)
        text += (text.empty() ? "" : "; ") + reason;
    return text;
}

void Offer::LeaveOut(const std::string& reason) {
    if (reason.empty())
        return;
    standing = Standing::LeftOut;
    reasons.push_back(reason);
}

void Offer::PutBehind(const std::string& reason) {
    if (reason.empty())
        return;
    isBehind = true;
    reasons.push_back(reason);
}

bool Offer::ComesBefore(const Offer& other) const {
    if (standing != other.standing || !IsOffered())
        return standing < other.standing;
    return isBehind == other.isBehind ? notAfter > other.notAfter : other.isBehind;
}

std::string PinObjection(CK_FLAGS tokenFlags) {
    if ((tokenFlags & CKF_USER_PIN_LOCKED) != 0)
        return "its PIN is locked";
    const bool isUnset =
        (tokenFlags & CKF_LOGIN_REQUIRED) != 0 && (tokenFlags & CKF_USER_PIN_INITIALIZED) == 0;
    return isUnset ? "its PIN is not set" : "";
}

Certificate::Certificate(Bytes id, Bytes der) : id_(std::move(id)), der_(std::move(der)) {
    const OpenSslPtr<X509> parsed = ParseCertificate(der_);
    if (!parsed) {
        standing_ = Standing::LeftOut;
        objections_.emplace_back("it cannot be read");
        return;
    }
    isReadable_ = true;
    isUsers_ = X509_check_ca(parsed.get()) == 0;
    notBefore_ = TimeOf(X509_get0_notBefore(parsed.get()));
    notAfter_ = TimeOf(X509_get0_notAfter(parsed.get()));
    EVP_PKEY* key = X509_get0_pubkey(parsed.get());
    modulus_ = ModulusOf(key);
    if (!modulus_.empty())
        verification_ = VerificationBy(key);
    const Use use = UseOf(parsed.get());
    standing_ = use.standing;
    if (use.objection != nullptr)
        objections_.emplace_back(use.objection);
    if (modulus_.empty() && standing_ != Standing::Chain) {
        standing_ = Standing::LeftOut;
        objections_.emplace_back("not RSA");
    }
}

Offer Certificate::Offered(std::time_t now) const {
    Offer offer{standing_, objections_, notAfter_, false};
    const bool isExpired = isReadable_ && notAfter_ < now;
    const bool isEarly = isReadable_ && !isExpired && notBefore_ > now;
    if (isExpired)
        offer.reasons.emplace_back("expired");
    if (isEarly)
        offer.reasons.emplace_back("not yet valid");
    if (offer.standing == Standing::Valid && (isExpired || isEarly))
        offer.standing = isExpired ? Standing::Expired : Standing::NotYetValid;
    return offer;
}

bool Certificate::Verifies(std::span<const CK_BYTE> block, std::span<const CK_BYTE> signature) const {
    return verification_ && EVP_PKEY_verify(verification_.get(), signature.data(), signature.size(),
                                            block.data(), block.size()) == 1;
}

std::vector<FoundCertificate> ReadCertificates(const ModuleSession& session,
                                               const std::vector<FoundCertificate>& known) {
    std::map<std::pair<Bytes, Bytes>, std::shared_ptr<const Certificate>> parsed;
    for (const FoundCertificate& one : known)
        parsed.emplace(std::pair(one.certificate->Id(), one.certificate->Der()), one.certificate);
    std::vector<FoundCertificate> found;
    for (const CK_OBJECT_HANDLE object : session.Certificates()) {
        std::vector<std::optional<Bytes>> values = session.Values(object, {CKA_ID, CKA_VALUE});
        std::shared_ptr<const Certificate>& certificate =
            parsed[{values[0].value_or(Bytes{}), values[1].value_or(Bytes{})}];
        if (!certificate)
            certificate =
                std::make_shared<Certificate>(values[0].value_or(Bytes{}), values[1].value_or(Bytes{}));
        found.push_back({object, certificate});
    }
    return found;
}

std::vector<PrivateKey> ReadPrivateKeys(const ModuleSession& session) {
    CK_OBJECT_CLASS key = CKO_PRIVATE_KEY;
    CK_ATTRIBUTE wanted{CKA_CLASS, &key, sizeof key};
    std::vector<PrivateKey> keys;
    for (const CK_OBJECT_HANDLE object : session.Find({&wanted, 1})) {
        const auto values = session.Values(object, {CKA_ID, CKA_MODULUS, CKA_KEY_TYPE, CKA_SIGN});
        std::string objection;
        if (NumberIn<CK_KEY_TYPE>(values[2]).value_or(CKK_RSA) != CKK_RSA)
            objection = "not RSA: the private key with its id";
        else if (NumberIn<CK_BBOOL>(values[3]).value_or(CK_TRUE) == CK_FALSE)
            objection = "the private key with its id may not sign";
        keys.push_back({object, values[0].value_or(Bytes{}), WithoutLeadingZeros(values[1].value_or(Bytes{})),
                        std::move(objection)});
    }
    return keys;
}

std::string KeyObjection(const std::vector<PrivateKey>& keys, const Certificate& certificate) {
    std::string objection = "no private key with its id";
    for (const PrivateKey& key : keys) {
        if (key.id != certificate.Id())
            continue;
        objection = key.objection;
        if (objection.empty() && !key.modulus.empty() && key.modulus != certificate.Modulus())
            objection = "the private key with its id belongs to another certificate";
        if (objection.empty())
            return {};
    }
    return objection;
}

std::vector<CK_OBJECT_HANDLE> KeysFor(const Certificate* certificate, std::vector<CK_OBJECT_HANDLE> keys,
                                      const ModuleSession& session) {
    if (keys.size() < 2 || certificate == nullptr)
        return keys;
    std::vector<CK_OBJECT_HANDLE> same, silent;
    for (const CK_OBJECT_HANDLE key : keys) {
        const Bytes modulus = WithoutLeadingZeros(session.Values(key, {CKA_MODULUS})[0].value_or(Bytes{}));
        if (modulus.empty())
            silent.push_back(key);
        else if (modulus == certificate->Modulus())
            same.push_back(key);
    }
    return same.empty() ? silent : same;
}

} // namespace tokendriver
