#include "XmlText.h"

#include <new>
#include <utility>

namespace {

bool lacksMemory = false;

void* Allocate(std::size_t size) {
    void* const memory = ::operator new(size, std::nothrow);
    lacksMemory |= !memory;
    return memory;
}

[[maybe_unused]] const bool kIsSet = [] {
    pugi::set_memory_management_functions(Allocate, [](void* memory) { ::operator delete(memory); });
    return true;
}();

// parse_fragment lets text outside of the root element be seen.
constexpr unsigned kOptions = pugi::parse_default | pugi::parse_fragment;

// The parser would take a zero byte for the end.
bool HasZero(std::string_view xml) { return xml.find('\0') != std::string_view::npos; }

/// Whether what was parsed has one root.
bool IsWhole(const pugi::xml_document& document, const pugi::xml_parse_result& parsed) {
    CheckXmlMemory();
    if (!parsed)
        return false;
    int elements = 0;
    for (const pugi::xml_node node : document) {
        if (node.type() == pugi::node_pcdata || node.type() == pugi::node_cdata)
            return false;
        elements += node.type() == pugi::node_element;
    }
    return elements == 1;
}

/// Grows with the large pieces that come, so that the little ones behind them do not copy them once more.
class StringWriter final : public pugi::xml_writer {
public:
    explicit StringWriter(std::string& text) : text_(text) {}

    void write(const void* data, std::size_t size) override {
        if (text_.capacity() - text_.size() < size)
            text_.reserve(text_.size() + size + size / 8);
        text_.append(static_cast<const char*>(data), size);
    }

private:
    std::string& text_;
};

} // namespace

void CheckXmlMemory() {
    if (std::exchange(lacksMemory, false))
        throw std::bad_alloc();
}

bool ParseXml(pugi::xml_document& document, std::string_view xml, unsigned moreOptions) {
    return !HasZero(xml) &&
           IsWhole(document,
                   document.load_buffer(xml.data(), xml.size(), kOptions | moreOptions, pugi::encoding_utf8));
}

bool ParseXmlInPlace(pugi::xml_document& document, std::string& xml, unsigned moreOptions) {
    return !HasZero(xml) &&
           IsWhole(document, document.load_buffer_inplace(xml.data(), xml.size(), kOptions | moreOptions,
                                                          pugi::encoding_utf8));
}

std::string XmlText(pugi::xml_node node) {
    CheckXmlMemory();
    std::string xml;
    StringWriter writer(xml);
    node.print(writer, "", pugi::format_raw | pugi::format_no_declaration, pugi::encoding_utf8);
    return xml;
}
