#include "QMX509Decoder.h"

#include "QMHostShared.h"
#include "ck/CkCert.h"
#include "ck/CkDateTime.h"
#include "ck/CkJsonObject.h"

#include <memory>
#include <sstream>

namespace {

// RFC 5280 section 4.2.1.3: every use but keyCertSign (0x04) and cRLSign (0x02). A key that has none of these
// issues certificates, or says nothing of its use, and is not offered for signing.
constexpr std::uint32_t kEndEntityUsages = 0xF9;

} // namespace

CkJsonObject* QMX509Decoder::GetX509CertDetails(const char* der, std::size_t length) {
    auto details = std::make_unique<CkJsonObject>();
    CkCert cert;
    if (!cert.LoadFromBinary2(der, length)) {
        LogTextToFile(cert.lastErrorText(), DEBUG);
        details->AppendString("ErrMsg", cert.lastErrorText());
        return details.release();
    }
    LogTextToFile("GetX509CertDetails - Load Certificate Success", DEBUG);

    CkDateTime validFrom;
    validFrom.SetFromRfc822(cert.validFromStr());
    details->AppendString("SelCertSubject", cert.subjectDN());
    details->AppendString("CertThumbPrint", cert.sha1Thumbprint());
    details->AppendString("eMail", cert.rfc822Name());
    details->AppendString("ValidFrom", validFrom.getAsTimestamp(false));
    details->AppendString("ExpDate", cert.validToStr());

    const std::unique_ptr<CkPublicKey> publicKey = cert.ExportPublicKey();
    if (!cert.get_LastMethodSuccess()) {
        LogTextToFile(cert.lastErrorText(), DEBUG);
        details->AppendString("ErrMsg", cert.lastErrorText());
        return details.release();
    }
    details->AppendString("PublicKey", publicKey->getEncoded(true, "Base64"));
    details->AppendString("Cert", cert.getEncoded());
    return details.release();
}

std::string QMX509Decoder::GetX509CertHTML(const char* der, std::size_t length) {
    CkCert cert;
    if (!cert.LoadFromBinary2(der, length)) {
        LogTextToFile(cert.lastErrorText(), DEBUG);
        return "QMHostError: " + cert.lastErrorText();
    }
    LogTextToFile("GetX509CertHTML - Load Certificate Success", DEBUG);

    const std::uint32_t keyUsages = cert.get_IntendedKeyUsage();
    LogTextToFile("Key Usages: " + std::to_string(keyUsages), DEBUG);
    if ((keyUsages & kEndEntityUsages) == 0)
        return "ChainCert";

    CkDateTime validTo;
    validTo.SetFromRfc822(cert.validToStr());
    const char* validity = validTo.OlderThan(1, "seconds")
                               ? "<span style='font-size:80%;color:red'><b>Expired: "
                               : "<span style='font-size:80%;'><b>Valid upto: ";
    std::ostringstream card;
    card << "<div style='font-family:verdana;'><span style='color:blue;'><b>" << cert.subjectCN()
         << "</b>&nbsp;(" << cert.rfc822Name() << ")</span><br>" << cert.subjectO() << " <br>" << validity
         << cert.validToStr() << "</b></span></div>"
         << "<hr>";
    return card.str();
}
