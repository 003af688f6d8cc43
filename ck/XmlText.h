#pragma once

// Private to ck/: reading and writing XML texts.

#include <pugixml.hpp>

#include <string>
#include <string_view>

/// Throws std::bad_alloc when pugixml got no memory since the last call. It leaves out what it has none for,
/// and says nothing; exceptions it does not promise to bear.
void CheckXmlMemory();

/// Makes `document` the tree that `xml` describes: one element, and around it nothing but comments and the
/// like. False when `xml` is not well-formed; std::bad_alloc as above. `moreOptions` are pugixml's, added to
/// its defaults.
bool ParseXml(pugi::xml_document& document, std::string_view xml, unsigned moreOptions);

/// The same without a copy: `xml` is overwritten, and has to outlive the content of `document`.
bool ParseXmlInPlace(pugi::xml_document& document, std::string& xml, unsigned moreOptions);

/// `node` and what is below it, without white space and without a declaration. std::bad_alloc also
/// when the tree had no memory to grow.
std::string XmlText(pugi::xml_node node);
