#pragma once

#include "CkByteData.h"

#include <memory>
#include <string>
#include <string_view>

struct AsnNode;

/// A node of an ASN.1 tree, in DER (X.690) or as XML.
///
/// A CkAsn is a handle: what GetSubItem, AppendSetR and AppendSequenceR return shares its node with the tree
/// that it came from, and keeps that node alive on its own. The objects belong to the caller.
///
/// XML: one element per node. "sequence", "set", "oid" (dotted), "int" (two's-complement hex digits, "01" for
/// 1), "null", "octets" (Base64), "contextSpecific" with the attributes "tag" and, when constructed,
/// "constructed"="1". The elements of the other types are listed in the implementation. DER -> XML -> DER
/// gives the same bytes.
///
/// No call throws on account of its input; depth, size and tag numbers are bounded by the limits named in the
/// implementation.
class CkAsn {
public:
    /// An empty SEQUENCE.
    CkAsn();
    ~CkAsn();
    CkAsn(CkAsn&&) noexcept;
    CkAsn& operator=(CkAsn&&) noexcept;

    /// Replaces the content by the one DER value that `text` encodes ("Base64"). False, and the content an
    /// empty SEQUENCE, when it is none.
    bool LoadEncoded(std::string_view text, const char* encoding);

    /// Replaces the content by the tree that `xml` describes; the text is used up in parsing. Content that
    /// does not fit its element is encoded as far as it can be read. False, and the content an empty
    /// SEQUENCE, when `xml` is not well-formed or its root element is unknown.
    bool LoadAsnXml(std::string xml);

    /// This node and its children as XML text.
    std::string asnToXml() const;

    /// The child at zero-based `index`, or null when there is none.
    std::unique_ptr<CkAsn> GetSubItem(int index) const;

    /// Append an empty constructed child and return it.
    std::unique_ptr<CkAsn> AppendSetR();
    std::unique_ptr<CkAsn> AppendSequenceR();

    /// Append an OBJECT IDENTIFIER given in dotted form; false, and nothing appended, when it is none.
    bool AppendOid(std::string_view dotted);

    /// Append an OCTET STRING of the bytes that `text` decodes to under `encoding` (as
    /// CkByteData::appendEncoded).
    bool AppendOctets(std::string_view text, const char* encoding);

    /// Appends the DER of this node and its children to `der`.
    bool GetBinaryDer(CkByteData& der) const;

    /// The DER of this node and its children as one line of text in `encoding` ("Base64").
    std::string getEncodedDer(const char* encoding) const;

private:
    explicit CkAsn(std::shared_ptr<AsnNode> node);
    std::shared_ptr<AsnNode> node_;
};
