#include "CkAsn.h"

#include "AsnNode.h"
#include "TextEncoding.h"

#include <utility>

namespace {

std::shared_ptr<AsnNode> AppendConstructed(AsnNode& parent, AsnTag tag) {
    auto child = std::make_shared<AsnNode>();
    child->tag = tag;
    return parent.children.emplace_back(std::move(child));
}

void AppendPrimitive(AsnNode& parent, AsnTag tag, std::string content) {
    parent.children.push_back(
        std::make_shared<AsnNode>(AsnNode{AsnClass::Universal, tag, false, std::move(content), {}}));
}

} // namespace

CkAsn::CkAsn() : node_(std::make_shared<AsnNode>()) {}
CkAsn::CkAsn(std::shared_ptr<AsnNode> node) : node_(std::move(node)) {}
CkAsn::~CkAsn() = default;
CkAsn::CkAsn(CkAsn&&) noexcept = default;
CkAsn& CkAsn::operator=(CkAsn&&) noexcept = default;

bool CkAsn::LoadEncoded(std::string_view text, const char* encoding) {
    std::string der;
    AppendDecodedText(der, text, encoding);
    std::shared_ptr<AsnNode> loaded = AsnFromDer(der);
    node_ = loaded ? loaded : std::make_shared<AsnNode>();
    return loaded != nullptr;
}

bool CkAsn::LoadAsnXml(std::string xml) {
    std::shared_ptr<AsnNode> loaded = AsnFromXml(std::move(xml));
    node_ = loaded ? loaded : std::make_shared<AsnNode>();
    return loaded != nullptr;
}

std::string CkAsn::asnToXml() const { return AsnToXml(*node_); }

std::unique_ptr<CkAsn> CkAsn::GetSubItem(int index) const {
    if (index < 0 || static_cast<std::size_t>(index) >= node_->children.size())
        return nullptr;
    return std::unique_ptr<CkAsn>(new CkAsn(node_->children[static_cast<std::size_t>(index)]));
}

std::unique_ptr<CkAsn> CkAsn::AppendSetR() {
    return std::unique_ptr<CkAsn>(new CkAsn(AppendConstructed(*node_, kAsnSet)));
}

std::unique_ptr<CkAsn> CkAsn::AppendSequenceR() {
    return std::unique_ptr<CkAsn>(new CkAsn(AppendConstructed(*node_, kAsnSequence)));
}

bool CkAsn::AppendOid(std::string_view dotted) {
    std::string content = OidContent(dotted);
    if (content.empty())
        return false;
    AppendPrimitive(*node_, kAsnOid, std::move(content));
    return true;
}

bool CkAsn::AppendOctets(std::string_view text, const char* encoding) {
    std::string content;
    AppendDecodedText(content, text, encoding);
    AppendPrimitive(*node_, kAsnOctetString, std::move(content));
    return true;
}

bool CkAsn::GetBinaryDer(CkByteData& der) const {
    der.appendStr(AsnToDer(*node_));
    return true;
}

std::string CkAsn::getEncodedDer(const char* encoding) const {
    return EncodeText(AsnToDer(*node_), encoding);
}
