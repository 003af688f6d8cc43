#include "CkXml.h"

#include "XmlText.h"

#include <charconv>
#include <optional>
#include <utility>
#include <vector>

struct CkXml::Impl {
    std::shared_ptr<pugi::xml_document> document;
    pugi::xml_node element;
};

namespace {

/// Elements that a path with an index may create in one step; the structures here have two of a name at most.
constexpr unsigned kMaxCreated = 1000;

struct Step {
    std::string name;
    unsigned index = 0;
};

std::optional<Step> ParseStep(std::string_view text) {
    Step step{std::string(text.substr(0, text.find('[')))};
    if (step.name.empty())
        return std::nullopt;
    if (step.name.size() == text.size())
        return step;
    const char* const end = text.data() + text.size();
    const auto [behind, error] = std::from_chars(text.data() + step.name.size() + 1, end, step.index);
    if (error != std::errc{} || std::string_view(behind, end) != "]")
        return std::nullopt;
    return step;
}

/// The steps of "a|b[1]|c"; none when the path is malformed.
std::vector<Step> ParsePath(std::string_view path) {
    std::vector<Step> steps;
    for (;;) {
        const std::size_t bar = path.find('|');
        std::optional<Step> step = ParseStep(path.substr(0, bar));
        if (!step)
            return {};
        steps.push_back(std::move(*step));
        if (bar == std::string_view::npos)
            return steps;
        path.remove_prefix(bar + 1);
    }
}

/// The child that `step` names, created together with those before it when missing and `create`.
pugi::xml_node Child(pugi::xml_node element, const Step& step, bool create) {
    const char* name = step.name.c_str();
    pugi::xml_node child = element.child(name);
    unsigned count = child ? 1 : 0; // of the children of that name up to `child`
    while (child && count <= step.index) {
        const pugi::xml_node next = child.next_sibling(name);
        if (!next)
            break;
        child = next;
        ++count;
    }
    if (count > step.index)
        return child;
    if (!create || step.index - count >= kMaxCreated)
        return {};
    for (; count <= step.index; ++count)
        child = element.append_child(name);
    return child;
}

/// The element at `path`, or a null node.
pugi::xml_node At(pugi::xml_node element, std::string_view path, bool create) {
    const std::vector<Step> steps = ParsePath(path);
    if (steps.empty())
        return {};
    for (const Step& step : steps)
        if (element = Child(element, step, create); !element)
            break;
    CheckXmlMemory();
    return element;
}

std::shared_ptr<pugi::xml_document> OneEmptyElement() {
    auto document = std::make_shared<pugi::xml_document>();
    document->append_child("unnamed");
    CheckXmlMemory();
    return document;
}

} // namespace

CkXml::CkXml() : impl_(std::make_unique<Impl>()) {
    impl_->document = OneEmptyElement();
    impl_->element = impl_->document->document_element();
}

CkXml::CkXml(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}
CkXml::~CkXml() = default;
CkXml::CkXml(CkXml&&) noexcept = default;
CkXml& CkXml::operator=(CkXml&&) noexcept = default;

bool CkXml::LoadXml2(std::string_view xml, bool autoTrim) {
    auto document = std::make_shared<pugi::xml_document>();
    const bool loaded =
        ParseXml(*document, xml, autoTrim ? pugi::parse_trim_pcdata : pugi::parse_ws_pcdata_single);
    impl_->document = loaded ? std::move(document) : OneEmptyElement();
    impl_->element = impl_->document->document_element();
    return loaded;
}

void CkXml::put_Tag(std::string_view name) {
    impl_->element.set_name(std::string(name).c_str());
    CheckXmlMemory();
}

std::string CkXml::getChildContent(std::string_view path) const {
    return At(impl_->element, path, false).child_value();
}

void CkXml::UpdateChildContent(std::string_view path, std::string_view content) {
    pugi::xml_node element = At(impl_->element, path, true);
    if (!element)
        return;
    pugi::xml_text text = element.text();
    if (!content.empty())
        text.set(content.data(), content.size());
    else if (text)
        element.remove_child(text.data());
    CheckXmlMemory();
}

bool CkXml::UpdateAttrAt(std::string_view path, bool autoCreate, std::string_view name,
                         std::string_view value) {
    pugi::xml_node element = At(impl_->element, path, autoCreate);
    if (!element)
        return false;
    const std::string attributeName(name);
    pugi::xml_attribute attribute = element.attribute(attributeName.c_str());
    if (!attribute)
        attribute = element.append_attribute(attributeName.c_str());
    const bool isSet = attribute.set_value(value.data(), value.size());
    CheckXmlMemory();
    return isSet;
}

std::unique_ptr<CkXml> CkXml::FindChild(std::string_view path) const {
    const pugi::xml_node element = At(impl_->element, path, false);
    if (!element)
        return nullptr;
    return std::unique_ptr<CkXml>(new CkXml(std::make_unique<Impl>(Impl{impl_->document, element})));
}

void CkXml::AddChildTree(const CkXml& tree) {
    impl_->element.append_copy(tree.impl_->element);
    CheckXmlMemory();
}

std::string CkXml::getXml() const { return XmlText(impl_->element); }
