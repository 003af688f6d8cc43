// DER -> XML -> DER gives the same bytes whenever the DER loads, also by way of the CkXml that trims.

#include "Require.h"
#include "ck/CkAsn.h"
#include "ck/CkXml.h"
#include "support/Bytes.h"

#include <openssl/asn1.h>

#include <cstdint>
#include <string>

namespace {

std::string Der(const CkAsn& asn) {
    CkByteData der;
    Require(asn.GetBinaryDer(der), "every tree has a DER");
    return {der.getData(), der.getSize()};
}

std::string DerOfXml(std::string xml) {
    CkAsn asn;
    Require(asn.LoadAsnXml(std::move(xml)), "the XML of a tree loads");
    return Der(asn);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string input(reinterpret_cast<const char*>(data), size);
    CkAsn asn;
    if (!asn.LoadEncoded(ToBase64(input), "Base64")) {
        Require(Der(asn) == std::string("\x30\x00", 2), "what does not load leaves an empty SEQUENCE");
        return 0;
    }
    Require(Der(asn) == input, "DER comes back");
    Require(asn.getEncodedDer("Base64") == ToBase64(input), "the text form is the same DER");

    const std::string xml = asn.asnToXml();
    Require(DerOfXml(xml) == input, "XML gives the same DER");
    CkXml tree;
    Require(tree.LoadXml2(xml, true), "the XML of a tree is XML");
    Require(DerOfXml(tree.getXml()) == input, "XML that was trimmed gives the same DER");

    // Each child is a value of its own.
    std::string content;
    for (int i = 0; const auto child = asn.GetSubItem(i); ++i) {
        Require(DerOfXml(child->asnToXml()) == Der(*child), "a child by itself gives the same DER");
        content += Der(*child);
    }
    Require(content.empty() || input.ends_with(content), "the children are the content");

    const std::uint8_t* next = data;
    long length = 0;
    int tag = 0, tagClass = 0;
    const int header = ASN1_get_object(&next, &length, &tag, &tagClass, static_cast<long>(size));
    Require((header & 0x81) == 0 && next + length == data + size, "libcrypto sees one whole value");
    return 0;
}
