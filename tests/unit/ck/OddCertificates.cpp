#include "OddCertificates.h"

#include "support/Bytes.h"
#include "support/Certificates.h"

std::vector<std::string> SystemCertificates() { return CertificatesIn("/etc/ssl/certs/ca-certificates.crt"); }

std::vector<std::string> OddCertificates() {
    using namespace std::string_literals;
    std::vector<CertificateOrder> orders(1);
    orders.push_back({.serial = std::string(20, '\xFF')});
    orders.push_back({.serial = "\x80", .negativeSerial = true});
    orders.push_back({.serial = std::string(200, '\x55')});
    orders.push_back({.serial = ""});
    orders.push_back({.version1 = true});
    orders.push_back({.subject = {}});
    orders.push_back({.subject = {{"CN", ""}, {"CN", " "}, {"O", "   "}, {"OU", "\t\r\n"}, {"OU", " x "}}});
    orders.push_back({.subject = {{"CN", "a\0b"s}, {"O", "\x01\x1F\x7F"}, {"L", "<&>\"']]>"}}});
    orders.push_back({.subject = {{"CN", "\xC3\xA9\xE0\xA4\x86\xF0\x9F\x98\x80"}}});
    orders.push_back({.subject = {{"CN", FromHex("00410906"), V_ASN1_BMPSTRING},
                                  {"O", "caf\xE9", V_ASN1_T61STRING},
                                  {"OU", FromHex("0001F600"), V_ASN1_UNIVERSALSTRING},
                                  {"L", "x", V_ASN1_IA5STRING},
                                  {"ST", "12 34", V_ASN1_NUMERICSTRING},
                                  {"title", "p", V_ASN1_PRINTABLESTRING},
                                  {"street", FromHex("A0"), V_ASN1_BIT_STRING},
                                  {"2.5.4.72", FromHex("3003020105"), V_ASN1_SEQUENCE}}});
    orders.push_back({.subject = {{"CN", "caf\xE9", V_ASN1_UTF8STRING, false, true},
                                  {"O", "odd", V_ASN1_BMPSTRING, false, true}}});
    orders.push_back({.subject = {{"CN", std::string(70'000, 'x')}}});
    orders.push_back({.notBefore = "19000101000000Z", .notAfter = "99991231235959Z"});
    orders.push_back({.extensions = {{"1.3.6.1.4.1.99999.1", FromHex("BF8F7F03 9F1F00")},
                                     {"2.5.29.15", FromHex("03020780")}}});
    for (const KeyKind kind : {KeyKind::Rsa, KeyKind::RsaPss, KeyKind::BrokenRsa, KeyKind::UnknownAlgorithm})
        orders.push_back({.key = kind});

    std::vector<std::string> certificates;
    for (const CertificateOrder& order : orders)
        certificates.push_back(order.der());
    return certificates;
}
