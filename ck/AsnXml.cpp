// The XML form of ASN.1. One element per value:
//
//   element            value                           content
//   sequence, set      SEQUENCE, SET                   the elements of the values in it
//   oid                OBJECT IDENTIFIER               dotted decimal
//   int, enum          INTEGER, ENUMERATED             hex of the content octets (two's complement)
//   bool, real         BOOLEAN, REAL                   hex of the content octets
//   null               NULL                            empty
//   octets             OCTET STRING                    Base64
//   bits               BIT STRING                      Base64; the attribute "unused" counts the unused bits
//   utf8, numeric,     UTF8String, NumericString,      text
//   printable, ia5,    PrintableString, IA5String,
//   visible,           VisibleString,
//   utctime, gentime   UTCTime, GeneralizedTime
//   t61, bmp, ucs4     T61-, BMP-, UniversalString     Base64
//   universal,         every other value of the        Base64, or the elements of the values in it when the
//   application,       class; the attribute "tag"      attribute "constructed" is 1
//   contextSpecific,   holds the tag number
//   private
//
// Content octets that the form above would not bring back exactly (an OID that is no number, a text of blanks
// or with control characters) are written in Base64, with the attribute "encoding" saying so.

#include "AsnNode.h"

#include "TextEncoding.h"
#include "Utf8.h"
#include "XmlText.h"

#include <pugixml.hpp>

#include <algorithm>
#include <array>
#include <charconv>

namespace {

enum class Form { Constructed, Oid, Hex, Null, Base64, Bits, Text };

struct NamedType {
    std::uint32_t tag;
    std::string_view element;
    Form form;
};

constexpr std::array kNamedTypes = {
    NamedType{kAsnBoolean, "bool", Form::Hex},
    NamedType{kAsnInteger, "int", Form::Hex},
    NamedType{kAsnBitString, "bits", Form::Bits},
    NamedType{kAsnOctetString, "octets", Form::Base64},
    NamedType{kAsnNull, "null", Form::Null},
    NamedType{kAsnOid, "oid", Form::Oid},
    NamedType{kAsnReal, "real", Form::Hex},
    NamedType{kAsnEnumerated, "enum", Form::Hex},
    NamedType{kAsnUtf8String, "utf8", Form::Text},
    NamedType{kAsnSequence, "sequence", Form::Constructed},
    NamedType{kAsnSet, "set", Form::Constructed},
    NamedType{kAsnNumericString, "numeric", Form::Text},
    NamedType{kAsnPrintableString, "printable", Form::Text},
    NamedType{kAsnT61String, "t61", Form::Base64},
    NamedType{kAsnIa5String, "ia5", Form::Text},
    NamedType{kAsnUtcTime, "utctime", Form::Text},
    NamedType{kAsnGeneralizedTime, "gentime", Form::Text},
    NamedType{kAsnVisibleString, "visible", Form::Text},
    NamedType{kAsnUniversalString, "ucs4", Form::Base64},
    NamedType{kAsnBmpString, "bmp", Form::Base64},
};

/// By AsnClass.
constexpr std::array<const char*, 4> kClassElements = {"universal", "application", "contextSpecific",
                                                       "private"};

/// The type whose own element can hold `node`, or null. A SEQUENCE that is primitive or a constructed string,
/// both against X.690, has none.
const NamedType* NamedTypeOf(const AsnNode& node) {
    if (node.tagClass != AsnClass::Universal)
        return nullptr;
    const auto* const found =
        std::find_if(kNamedTypes.begin(), kNamedTypes.end(), [&](const NamedType& type) {
            return type.tag == node.tag && (type.form == Form::Constructed) == node.constructed;
        });
    return found == kNamedTypes.end() ? nullptr : found;
}

const NamedType* NamedTypeOf(std::string_view element) {
    const auto* const found = std::find_if(kNamedTypes.begin(), kNamedTypes.end(),
                                           [&](const NamedType& type) { return type.element == element; });
    return found == kNamedTypes.end() ? nullptr : found;
}

/// Whether XML brings `text` back as it is, also when the white space around it is trimmed: no control
/// characters (XML 1.0 section 2.2), no blanks at the ends.
bool IsXmlText(std::string_view text) {
    if (text.starts_with(' ') || text.ends_with(' '))
        return false;
    while (!text.empty()) {
        const auto [codePoint, size] = FirstUtf8Character(text);
        if (size == 0 || codePoint < 0x20 || (codePoint >= 0x7F && codePoint < 0xA0) || codePoint == 0xFFFE ||
            codePoint == 0xFFFF)
            return false;
        text.remove_prefix(size);
    }
    return true;
}

// DER -> XML

void SetText(pugi::xml_node element, std::string_view text) {
    if (!text.empty())
        element.text().set(text.data(), text.size());
}

void SetBase64(pugi::xml_node element, std::string_view bytes) {
    SetText(element, EncodeText(bytes, "Base64"));
}

/// `text` when it is one that brings `content` back, else Base64.
void SetTextOrBase64(pugi::xml_node element, std::string_view content, std::string_view text, bool exact) {
    if (exact)
        return SetText(element, text);
    element.append_attribute("encoding") = "base64";
    SetBase64(element, content);
}

void AppendElement(pugi::xml_node parent, const AsnNode& node);

void AppendChildren(pugi::xml_node element, const AsnNode& node) {
    for (const std::shared_ptr<AsnNode>& child : node.children)
        AppendElement(element, *child);
}

void AppendTagged(pugi::xml_node parent, const AsnNode& node) {
    pugi::xml_node element = parent.append_child(kClassElements[static_cast<std::size_t>(node.tagClass)]);
    element.append_attribute("tag") = node.tag;
    if (node.constructed) {
        element.append_attribute("constructed") = "1";
        AppendChildren(element, node);
    } else {
        SetBase64(element, node.content);
    }
}

void AppendElement(pugi::xml_node parent, const AsnNode& node) {
    const NamedType* type = NamedTypeOf(node);
    if (!type)
        return AppendTagged(parent, node);
    pugi::xml_node element = parent.append_child(type->element.data());
    const std::string& content = node.content;
    switch (type->form) {
    case Form::Constructed:
        return AppendChildren(element, node);
    case Form::Oid: {
        const std::string dotted = OidText(content);
        return SetTextOrBase64(element, content, dotted, !dotted.empty());
    }
    case Form::Hex:
        return SetText(element, EncodeText(content, "Hex"));
    case Form::Null:
        return SetTextOrBase64(element, content, {}, content.empty());
    case Form::Base64:
        return SetBase64(element, content);
    case Form::Bits:
        if (!content.empty()) {
            element.append_attribute("unused") =
                static_cast<unsigned>(static_cast<unsigned char>(content.front()));
            SetBase64(element, std::string_view(content).substr(1));
        }
        return;
    case Form::Text:
        return SetTextOrBase64(element, content, content, IsXmlText(content));
    }
}

// XML -> DER

/// The number in an attribute, 0 when there is none that is at most `max`.
std::uint32_t NumberIn(pugi::xml_node element, const char* attribute, std::uint32_t max) {
    const std::string_view text = element.attribute(attribute).value();
    std::uint32_t number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number <= max ? number : 0;
}

std::string Decoded(std::string_view text, const char* encoding) {
    std::string bytes;
    AppendDecodedText(bytes, text, encoding);
    return bytes;
}

std::string ContentOf(pugi::xml_node element, Form form) {
    const std::string_view text = element.child_value();
    if (element.attribute("encoding"))
        return Decoded(text, "Base64");
    switch (form) {
    case Form::Oid:
        return OidContent(text);
    case Form::Hex:
        return Decoded(text, "Hex");
    case Form::Base64:
        return Decoded(text, "Base64");
    case Form::Bits: {
        if (text.empty() && !element.attribute("unused"))
            return {};
        std::string content(1, static_cast<char>(NumberIn(element, "unused", 0xFF)));
        AppendDecodedText(content, text, "Base64");
        return content;
    }
    case Form::Text:
        return std::string(text);
    case Form::Constructed:
    case Form::Null:
        break;
    }
    return {};
}

/// Sets the tag of `node` as the element's name and attributes say; what to make of its content, or nothing
/// when the name is unknown.
const NamedType* ReadTag(pugi::xml_node element, AsnNode& node) {
    static constexpr NamedType kTaggedConstructed{0, "", Form::Constructed};
    static constexpr NamedType kTaggedPrimitive{0, "", Form::Base64};

    const std::string_view name = element.name();
    if (const NamedType* type = NamedTypeOf(name)) {
        node.tag = type->tag;
        node.constructed = type->form == Form::Constructed;
        return type;
    }
    const auto* const found = std::find(kClassElements.begin(), kClassElements.end(), name);
    if (found == kClassElements.end())
        return nullptr;
    node.tagClass = static_cast<AsnClass>(found - kClassElements.begin());
    node.tag = NumberIn(element, "tag", kMaxAsnTag);
    node.constructed = std::string_view(element.attribute("constructed").value()) == "1";
    return node.constructed ? &kTaggedConstructed : &kTaggedPrimitive;
}

/// Reads trees of elements within the limits.
class TreeReader {
public:
    /// The value that `element` describes. Null when its name is unknown or a limit is passed.
    std::shared_ptr<AsnNode> Read(pugi::xml_node element, int depth) {
        if (depth == kMaxAsnDepth || nodesLeft_ == 0) {
            exceeded_ = true;
            return nullptr;
        }
        --nodesLeft_;
        auto node = std::make_shared<AsnNode>();
        const NamedType* type = ReadTag(element, *node);
        if (!type)
            return nullptr;
        if (type->form != Form::Constructed) {
            node->content = ContentOf(element, type->form);
            return node;
        }
        for (const pugi::xml_node child : element)
            if (std::shared_ptr<AsnNode> value =
                    child.type() == pugi::node_element ? Read(child, depth + 1) : nullptr)
                node->children.push_back(std::move(value));
        return exceeded_ ? nullptr : node;
    }

private:
    std::size_t nodesLeft_ = kMaxAsnNodes;
    bool exceeded_ = false;
};

} // namespace

std::string AsnToXml(const AsnNode& node) {
    pugi::xml_document document;
    AppendElement(document, node);
    return XmlText(document.document_element());
}

std::shared_ptr<AsnNode> AsnFromXml(std::string xml) {
    pugi::xml_document document;
    if (!ParseXmlInPlace(document, xml, pugi::parse_ws_pcdata_single))
        return nullptr;
    return TreeReader().Read(document.document_element(), 0);
}
