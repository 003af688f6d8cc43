// Any bytes as a certificate: the record is valid JSON that says what libcrypto says, the card is a card, the
// word for chain certificates, or an error; and both agree on whether it is a certificate.

#include "HostFolder.h"
#include "QMX509Decoder.h"
#include "Require.h"
#include "ck/CkAsn.h"
#include "ck/CkJsonObject.h"
#include "support/Bytes.h"
#include "support/OpenSsl.h"

#include <nlohmann/json.hpp>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace {

/// The key as the certificate holds it: the RSAPublicKey, or the SubjectPublicKeyInfo of other keys.
std::string PublicKey(const X509& certificate) {
    X509_PUBKEY* key = X509_get_X509_PUBKEY(&certificate);
    ASN1_OBJECT* algorithm = nullptr;
    X509_PUBKEY_get0_param(&algorithm, nullptr, nullptr, nullptr, key);
    if (OBJ_obj2nid(algorithm) == NID_rsaEncryption) {
        const ASN1_BIT_STRING* bits = X509_get0_pubkey_bitstr(&certificate);
        return {bits->data, bits->data + bits->length};
    }
    return Encoded(i2d_X509_PUBKEY, key);
}

/// Whether a SignedData can hold `der`, four levels down: it is DER throughout, also in values into which
/// libcrypto does not look.
bool FitsSignedData(std::string_view der) {
    std::string around(der);
    for (int level = 0; level < 4; ++level)
        around = DerValue(V_ASN1_SEQUENCE | V_ASN1_CONSTRUCTED, around);
    return CkAsn().LoadEncoded(ToBase64(around), "Base64");
}

/// `certificate` is libcrypto's view of `der`, null when it has none. Certificates with odd strings in their
/// names load all the same, which libcrypto leaves.
void CheckRecord(X509* certificate, std::string_view der, const nlohmann::ordered_json& record) {
    if (!record.contains("SelCertSubject")) {
        Require(!certificate || !FitsSignedData(der), "what libcrypto loads, and is DER, is a certificate");
        Require(record.size() == 1 && !record.at("ErrMsg").get<std::string>().empty(),
                "what is no certificate has a reason and nothing else");
        return;
    }
    std::string names;
    for (const auto& [name, value] : record.items())
        names += name + " ";
    const bool hasKey = record.contains("PublicKey");
    Require(names == std::string("SelCertSubject CertThumbPrint eMail ValidFrom ExpDate ") +
                         (hasKey ? "PublicKey Cert " : "ErrMsg "),
            "the members and their order");
    Require(record.at("CertThumbPrint") == ToHex(DigestOf("SHA1", der)), "the thumbprint");
    Require(!hasKey || FromBase64(record.at("Cert").get<std::string>()) == der, "the certificate itself");
    if (!certificate)
        return;
    Require(hasKey == (X509_get0_pubkey(certificate) != nullptr), "a key that can be read is there");
    Require(!hasKey || FromBase64(record.at("PublicKey").get<std::string>()) == PublicKey(*certificate),
            "the public key");
}

void CheckCard(X509* certificate, const nlohmann::ordered_json& record, const std::string& card) {
    if (!record.contains("SelCertSubject")) {
        Require(card == "QMHostError: " + record.at("ErrMsg").get<std::string>(), "an error has its reason");
        return;
    }
    if (certificate && (X509_get_extension_flags(certificate) & EXFLAG_INVALID) == 0) {
        const std::uint32_t usage = X509_get_key_usage(certificate);
        Require((card == "ChainCert") == (usage == UINT32_MAX || (usage & 0xF9) == 0), "who is a chain");
    }
    if (card != "ChainCert")
        Require(card.starts_with("<div style='font-family:verdana;'>") && card.ends_with("</div><hr>"),
                "a card begins and ends as one");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    EnterHostFolder();
    std::string_view der(reinterpret_cast<const char*>(data), size);
    if (const std::size_t valueSize = ValueSize(der); valueSize > 0)
        der = der.substr(0, valueSize); // what stands behind is padding
    const Owned<X509> certificate = Decoded(d2i_X509, der);
    QMX509Decoder decoder;
    const std::unique_ptr<CkJsonObject> details(
        decoder.GetX509CertDetails(reinterpret_cast<const char*>(data), size));
    const auto record = nlohmann::ordered_json::parse(details->emit(), nullptr, false);
    Require(record.is_object(), "the record is valid JSON");
    CheckRecord(certificate.get(), der, record);
    CheckCard(certificate.get(), record, decoder.GetX509CertHTML(reinterpret_cast<const char*>(data), size));
    return 0;
}
