#pragma once

#include "CkJsonObject.h"

#include <memory>
#include <string_view>
#include <vector>

/// A JSON array of objects. It stores copies and gives copies out.
class CkJsonArray {
public:
    void Clear();

    /// Inserts a copy of `object` before position `index`, or behind the last with -1. False when `index`
    /// lies outside.
    bool AddObjectCopyAt(int index, const CkJsonObject& object);

    /// The position of the first object whose string member `name` equals `value` byte for byte (without
    /// regard to ASCII case when `caseSensitive` is false), or -1.
    int FindObject(std::string_view name, std::string_view value, bool caseSensitive) const;

    /// A copy of the object at `index`, or null when there is none.
    std::unique_ptr<CkJsonObject> ObjectAt(int index) const;

private:
    std::vector<CkJsonObject> objects_;
};
