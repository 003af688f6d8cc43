#include "CkJsonArray.h"

#include "CkJsonObjectImpl.h"

#include <algorithm>

namespace {

// Not tolower: it follows the locale.
char LowerAscii(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool Equal(std::string_view a, std::string_view b, bool caseSensitive) {
    if (caseSensitive)
        return a == b;
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](char x, char y) { return LowerAscii(x) == LowerAscii(y); });
}

} // namespace

void CkJsonArray::Clear() { objects_.clear(); }

bool CkJsonArray::AddObjectCopyAt(int index, const CkJsonObject& object) {
    if (index < -1 || index > static_cast<int>(objects_.size()))
        return false;
    objects_.insert(index < 0 ? objects_.end() : objects_.begin() + index, object);
    return true;
}

int CkJsonArray::FindObject(std::string_view name, std::string_view value, bool caseSensitive) const {
    const auto found = std::find_if(objects_.begin(), objects_.end(), [&](const CkJsonObject& object) {
        const JsonMember* member = object.impl_->Find(name);
        return member && member->kind == JsonMember::Kind::String &&
               Equal(member->text, value, caseSensitive);
    });
    return found == objects_.end() ? -1 : static_cast<int>(found - objects_.begin());
}

std::unique_ptr<CkJsonObject> CkJsonArray::ObjectAt(int index) const {
    if (index < 0 || index >= static_cast<int>(objects_.size()))
        return nullptr;
    return std::make_unique<CkJsonObject>(objects_[static_cast<std::size_t>(index)]);
}
