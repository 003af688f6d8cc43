#include "CertName.h"

#include "AsnNode.h"
#include "Utf8.h"

#include <openssl/objects.h>

#include <algorithm>
#include <array>
#include <new>
#include <string_view>

namespace {

struct AttributeName {
    int nid;
    const char* name;
};

constexpr std::array kAttributeNames = {
    AttributeName{NID_countryName, "C"},
    AttributeName{NID_stateOrProvinceName, "ST"},
    AttributeName{NID_localityName, "L"},
    AttributeName{NID_organizationName, "O"},
    AttributeName{NID_organizationalUnitName, "OU"},
    AttributeName{NID_commonName, "CN"},
    AttributeName{NID_surname, "SN"},
    AttributeName{NID_givenName, "GN"},
    AttributeName{NID_title, "title"},
    AttributeName{NID_streetAddress, "street"},
    AttributeName{NID_postalCode, "postalCode"},
    AttributeName{NID_serialNumber, "serialNumber"},
    AttributeName{NID_pkcs9_emailAddress, "E"},
    AttributeName{NID_domainComponent, "DC"},
};

std::string NameOf(const ASN1_OBJECT* type) {
    const int nid = OBJ_obj2nid(type);
    for (const AttributeName& attribute : kAttributeNames)
        if (attribute.nid == nid)
            return attribute.name;
    return DottedOid(type);
}

/// The string types of X.680 that a name may hold; what else it may hold (BIT STRING, SEQUENCE) is no text.
bool IsText(const ASN1_STRING* value) {
    constexpr unsigned long kTextTypes =
        (B_ASN1_PRINTABLE) & ~(B_ASN1_BIT_STRING | B_ASN1_SEQUENCE | B_ASN1_UNKNOWN);
    return ASN1_tag2bit(ASN1_STRING_type(value)) & kTextTypes;
}

std::string_view BytesOf(const ASN1_STRING* value) {
    return {reinterpret_cast<const char*>(ASN1_STRING_get0_data(value)),
            static_cast<std::size_t>(ASN1_STRING_length(value))};
}

/// The whole text in valid UTF-8. Bytes that the string type does not allow are taken as they are, with
/// U+FFFD for those that are no UTF-8.
std::string Utf8Of(const ASN1_STRING* value) {
    const OpenSslErrors errors;
    unsigned char* text = nullptr;
    const int size = ASN1_STRING_to_UTF8(&text, value);
    const OpenSslPtr<unsigned char> owner(text);
    if (size < 0)
        return ValidUtf8(BytesOf(value));
    return {reinterpret_cast<const char*>(text), static_cast<std::size_t>(size)};
}

/// RFC 4514 section 2.4, for values without a text form: the hex of their encoding.
std::string HexOf(const ASN1_STRING* value) {
    const OpenSslPtr<BIO> text(BIO_new(BIO_s_mem()));
    if (!text || ASN1_STRING_print_ex(text.get(), value, ASN1_STRFLGS_DUMP_ALL | ASN1_STRFLGS_DUMP_DER) < 0)
        return {};
    char* begin = nullptr;
    const long size = BIO_get_mem_data(text.get(), &begin);
    return {begin, static_cast<std::size_t>(size)};
}

/// RFC 4514 section 2.4, for texts.
std::string Escaped(std::string_view text) {
    std::string escaped;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        const bool atEnds = (i == 0 && (c == ' ' || c == '#')) || (i + 1 == text.size() && c == ' ');
        if (c == '\0') {
            escaped += "\\00";
            continue;
        }
        if (atEnds || std::string_view("\"+,;<>\\").find(c) != std::string_view::npos)
            escaped += '\\';
        escaped += c;
    }
    return escaped;
}

/// Turns `value` into a UTF8String when it is a string of a type that libcrypto judges.
void MakeReadable(AsnNode& value) {
    const bool judged = value.tag == kAsnUtf8String || value.tag == kAsnBmpString ||
                        value.tag == kAsnUniversalString || value.tag == kAsnVisibleString;
    if (value.tagClass != AsnClass::Universal || !judged)
        return;
    const OpenSslPtr<ASN1_STRING> string(ASN1_STRING_type_new(static_cast<int>(value.tag)));
    if (!string ||
        !ASN1_STRING_set(string.get(), value.content.data(), static_cast<int>(value.content.size())))
        throw std::bad_alloc();
    value.content = Utf8Of(string.get());
    value.tag = kAsnUtf8String;
}

/// RFC 5280 section 4.1.2.4: Name ::= SEQUENCE OF SET OF SEQUENCE { type, value }.
void MakeNameReadable(const AsnNode& name) {
    for (const auto& rdn : name.children)
        for (const auto& attribute : rdn->children)
            if (attribute->children.size() == 2)
                MakeReadable(*attribute->children[1]);
}

} // namespace

std::string CStringOf(const ASN1_STRING* value) {
    if (!IsText(value))
        return {};
    std::string text = Utf8Of(value);
    text.resize(std::min(text.find('\0'), text.size()));
    return text;
}

std::string FirstAttribute(const X509_NAME* name, int nid) {
    const int index = X509_NAME_get_index_by_NID(name, nid, -1);
    return index < 0 ? std::string() : CStringOf(X509_NAME_ENTRY_get_data(X509_NAME_get_entry(name, index)));
}

std::string DistinguishedName(const X509_NAME* name) {
    std::string text;
    int lastRdn = -1;
    for (int i = 0; i < X509_NAME_entry_count(name); ++i) {
        const X509_NAME_ENTRY* entry = X509_NAME_get_entry(name, i);
        const int rdn = X509_NAME_ENTRY_set(entry);
        if (i > 0)
            text += rdn == lastRdn ? "+" : ", ";
        lastRdn = rdn;
        const ASN1_STRING* value = X509_NAME_ENTRY_get_data(entry);
        text += NameOf(X509_NAME_ENTRY_get_object(entry)) + "=";
        text += IsText(value) ? Escaped(Utf8Of(value)) : HexOf(value);
    }
    return text;
}

std::string WithReadableNames(AsnNode& tree) {
    if (tree.children.empty())
        return {};
    // RFC 5280 section 4.1: [0] version (absent in version 1), serial number, signature, issuer, validity,
    // subject.
    const auto& tbsCertificate = tree.children.front()->children;
    const std::size_t version =
        !tbsCertificate.empty() && tbsCertificate[0]->tagClass == AsnClass::ContextSpecific;
    if (tbsCertificate.size() < version + 5)
        return {};
    MakeNameReadable(*tbsCertificate[version + 2]);
    MakeNameReadable(*tbsCertificate[version + 4]);
    return AsnToDer(tree);
}
