#pragma once

#include <memory>
#include <string>
#include <string_view>

/// An element of an XML tree, addressed by paths.
///
/// A path is a list of element names separated by "|", from a child of this element downwards; "name[n]" is
/// the zero-based n-th child of that name, "name" the first. Calls that change the tree create what is
/// missing along the path, each new element behind the existing children.
///
/// Contents and names end at their first zero byte, as C strings do. A malformed path names no element and
/// creates none; neither does one whose index lies too far behind the last element of its name.
///
/// A CkXml is a handle: what FindChild returns belongs to the caller, shares its element with this tree and
/// keeps the tree alive.
class CkXml {
public:
    /// A tree of one empty element.
    CkXml();
    ~CkXml();
    CkXml(CkXml&&) noexcept;
    CkXml& operator=(CkXml&&) noexcept;

    /// Replaces the tree by the one that `xml` describes, with white space around contents removed when
    /// `autoTrim`. False, and the tree one empty element, when `xml` is not well-formed.
    bool LoadXml2(std::string_view xml, bool autoTrim);

    /// Renames this element.
    void put_Tag(std::string_view name);

    /// The text content of the element at `path`, or empty when there is none.
    std::string getChildContent(std::string_view path) const;

    /// Sets the text content of the element at `path`, creating it when missing.
    void UpdateChildContent(std::string_view path, std::string_view content);

    /// Sets an attribute of the element at `path`. When the path is missing it is created with `autoCreate`,
    /// else nothing changes. True when the attribute was set.
    bool UpdateAttrAt(std::string_view path, bool autoCreate, std::string_view name, std::string_view value);

    /// The element at `path`, or null when there is none.
    std::unique_ptr<CkXml> FindChild(std::string_view path) const;

    /// Appends a copy of the whole of `tree` as the last child of this element.
    void AddChildTree(const CkXml& tree);

    /// This element and what is below it as XML text.
    std::string getXml() const;

private:
    struct Impl;
    explicit CkXml(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> impl_;
};
