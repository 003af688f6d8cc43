#pragma once

#include <memory>
#include <string>
#include <string_view>

/// A JSON object (RFC 8259), members in the order in which they came. Of members with the same name the first
/// counts.
///
/// Files with more bytes than the limit named in the implementation do not load; the number of members and
/// their depth are not limited, and depth costs no stack. No call throws on account of its input. Texts go in
/// and out as C strings do: a value ends at its first U+0000.
class CkJsonObject {
public:
    CkJsonObject();
    CkJsonObject(const CkJsonObject& other);
    CkJsonObject(CkJsonObject&& other) noexcept;
    CkJsonObject& operator=(const CkJsonObject& other);
    CkJsonObject& operator=(CkJsonObject&& other) noexcept;
    ~CkJsonObject();

    /// Replaces the content by the object that `json` holds. False when `json` is no JSON object in valid
    /// UTF-8; the content is then empty and lastErrorText() tells the reason, of a syntax error its position.
    bool Load(std::string_view json);

    /// The same for a file. lastErrorText() names the file and the system's reason when it cannot be read.
    bool LoadFile(const char* path);

    /// Why the last Load or LoadFile failed, in words; empty after a success.
    std::string lastErrorText() const;

    /// The zero-based position of the member `name` (exact, case-sensitive), or -1.
    int IndexOf(std::string_view name) const;

    /// The member as text: a string's own text, a number, boolean or null as JSON writes it, an object or
    /// array as compact JSON; numbers as they were written. Empty when there is no such member. Bytes that
    /// are no UTF-8 stay as they were appended.
    std::string stringOf(std::string_view name) const;

    /// The same, for large texts: the text is moved out, and the member an empty one. Allocates
    /// nothing.
    std::string TakeString(std::string_view name);

    /// The member as an integer: a number without its fraction (out of range: the nearest int), a string that
    /// is a decimal number likewise, true as 1. Everything else, also a missing member, is 0.
    int IntOf(std::string_view name) const;

    /// Appends a member behind the others, whatever their names.
    void AppendInt(std::string_view name, int value);
    void AppendString(std::string_view name, std::string value);
    void AppendBool(std::string_view name, bool value);

    /// The object as compact JSON, always valid UTF-8: "/" and non-ASCII characters unescaped, a byte that is
    /// no UTF-8 replaced by U+FFFD.
    std::string emit() const;

private:
    friend class CkJsonArray;
    struct Impl;
    std::unique_ptr<Impl> impl_;
};
