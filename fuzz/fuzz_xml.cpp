// XML text and XML paths: what is set at a path is read there again, the text of a tree loads again, and XML
// that CkAsn takes becomes DER that goes round.

#include "FuzzedChoices.h"
#include "Require.h"
#include "ck/CkAsn.h"
#include "ck/CkXml.h"

#include <memory>
#include <string>

namespace {

void CheckAsn(const std::string& xml) {
    CkAsn asn;
    if (!asn.LoadAsnXml(xml))
        return;
    const std::string der = asn.getEncodedDer("Base64");
    CkAsn again;
    // An element may name the reserved tag 0 or hold an empty OID: such XML has a DER that is none.
    if (!again.LoadEncoded(der, "Base64"))
        return;
    Require(again.getEncodedDer("Base64") == der, "DER of XML comes back");
    CkAsn fromXml;
    Require(fromXml.LoadAsnXml(again.asnToXml()) && fromXml.getEncodedDer("Base64") == der,
            "DER of XML goes round");
}

/// A path of up to four steps out of few names, so that many of them meet.
std::string SomePath(FuzzedChoices& input) {
    static constexpr const char* kNames[] = {"sequence", "set", "oid", "contextSpecific", "a"};
    std::string path = input.OneOf(kNames);
    for (int more = input.InRange(0, 3); more > 0; --more) {
        if (input.Bool())
            path += "[" + std::to_string(input.InRange(0, 3)) + "]";
        path += std::string("|") + input.OneOf(kNames);
    }
    return path;
}

/// Without a zero byte, which no text of an element has.
std::string SomeContent(FuzzedChoices& input) {
    std::string content = input.String(40);
    std::erase(content, '\0');
    return content;
}

/// The text of a tree loads. What was read once (line ends and white space between elements are then as XML
/// has them) comes out the same for ever.
void CheckText(const CkXml& xml) {
    CkXml read, again;
    Require(read.LoadXml2(xml.getXml(), false), "the text of a tree loads");
    const std::string text = read.getXml();
    Require(again.LoadXml2(text, false) && again.getXml() == text, "the text of a tree is stable");
}

void CheckPaths(FuzzedChoices& input) {
    CkXml root;
    root.put_Tag("sequence");
    while (input.BytesLeft() > 0) {
        const std::string path = SomePath(input);
        switch (input.InRange(0, 4)) {
        case 0: {
            const std::string content = SomeContent(input);
            root.UpdateChildContent(path, content);
            Require(root.getChildContent(path) == content, "what was set at a path is there");
            break;
        }
        case 1:
            Require(root.UpdateAttrAt(path, true, "tag", SomeContent(input)), "an attribute is set");
            Require(root.FindChild(path) != nullptr, "the path was created");
            break;
        case 2: {
            const bool isThere = root.FindChild(path) != nullptr;
            Require(root.UpdateAttrAt(path, false, "tag", "0") == isThere, "nothing is created unasked");
            break;
        }
        case 3:
            if (const std::unique_ptr<CkXml> child = root.FindChild(path)) {
                CkXml tree;
                tree.LoadXml2(input.String(60), input.Bool());
                child->AddChildTree(tree);
            }
            break;
        default: // whatever the path, nothing happens to the tree
            const std::string text = root.getXml();
            const std::string odd = input.String(20);
            static_cast<void>(root.getChildContent(odd));
            static_cast<void>(root.FindChild(odd));
            root.UpdateAttrAt(odd, false, "b", "c");
            Require(root.getXml() == text || root.FindChild(odd), "reading changes nothing");
        }
    }
    CheckText(root);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0)
        return 0;
    // Texts begin with "<"; anything else is a list of calls.
    if (data[0] != '<') {
        FuzzedChoices input(data, size);
        CheckPaths(input);
        return 0;
    }
    const std::string text(reinterpret_cast<const char*>(data), size);
    CheckAsn(text);
    for (const bool trim : {false, true}) {
        CkXml xml;
        if (xml.LoadXml2(text, trim))
            CheckText(xml);
        else
            Require(xml.getXml() == CkXml().getXml(), "what does not load leaves one empty element");
    }
    return 0;
}
