// The object is a list of members in which only strings are kept decoded; every other value is kept as its
// compact JSON text. So nothing here walks a tree: neither depth nor the size of what a member holds costs
// stack or copies.

#include "CkJsonObjectImpl.h"
#include "JsonText.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstring>
#include <utility>

namespace {

/// The only file that is read holds settings: a few lines.
constexpr std::size_t kMaxFileSize = 1'000'000;

/// Text as a C string has it.
std::string_view UpToZero(std::string_view text) { return text.substr(0, text.find('\0')); }

/// The number that `text` is, without its fraction, the nearest int when it is out of range; 0 when it is
/// none.
int NumberAsInt(std::string_view text) {
    double value = 0; // stays 0 when the number is too small or too large for a double
    const char* const end = text.data() + text.size();
    if (std::from_chars(text.data(), end, value).ptr != end || !std::isfinite(value))
        return 0;
    return static_cast<int>(std::clamp<double>(value, INT_MIN, INT_MAX));
}

/// A file descriptor, closed at the end of its life.
class File {
public:
    // Without O_NONBLOCK opening a pipe would wait for its other end.
    explicit File(const char* path) : descriptor_(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {}
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    ~File() {
        if (descriptor_ >= 0)
            close(descriptor_);
    }
    int get() const { return descriptor_; }

private:
    int descriptor_;
};

/// In English: strerror would follow the locale.
std::string SystemReason(int error) { return strerrordesc_np(error); }

/// Reads a regular file of at most kMaxFileSize. Returns the reason of the failure, empty on success.
std::string ReadFile(const char* path, std::string& content) {
    const File file(path);
    struct stat status {};
    if (file.get() < 0 || fstat(file.get(), &status) != 0)
        return SystemReason(errno);
    if (S_ISDIR(status.st_mode))
        return SystemReason(EISDIR);
    if (!S_ISREG(status.st_mode))
        return "not a regular file";
    if (status.st_size > static_cast<off_t>(kMaxFileSize))
        return "larger than " + std::to_string(kMaxFileSize) + " bytes";

    // A file that grows meanwhile is read up to the size that was judged.
    content.resize(static_cast<std::size_t>(status.st_size));
    std::size_t filled = 0;
    while (filled < content.size()) {
        const ssize_t count = read(file.get(), content.data() + filled, content.size() - filled);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return SystemReason(errno);
        if (count == 0)
            break;
        filled += static_cast<std::size_t>(count);
    }
    content.resize(filled);
    return {};
}

} // namespace

const JsonMember* CkJsonObject::Impl::Find(std::string_view name) const {
    const auto found = std::find_if(members.begin(), members.end(),
                                    [&](const JsonMember& member) { return member.name == name; });
    return found == members.end() ? nullptr : &*found;
}

CkJsonObject::CkJsonObject() : impl_(std::make_unique<Impl>()) {}
CkJsonObject::CkJsonObject(const CkJsonObject& other) : impl_(std::make_unique<Impl>(*other.impl_)) {}
CkJsonObject::CkJsonObject(CkJsonObject&& other) noexcept = default;
CkJsonObject& CkJsonObject::operator=(const CkJsonObject& other) { return *this = CkJsonObject(other); }
CkJsonObject& CkJsonObject::operator=(CkJsonObject&& other) noexcept = default;
CkJsonObject::~CkJsonObject() = default;

bool CkJsonObject::Load(std::string_view json) {
    *impl_ = Impl();
    std::vector<JsonMember> members;
    impl_->error = ReadJsonMembers(json, members);
    if (!impl_->error.empty())
        return false;
    impl_->members = std::move(members);
    return true;
}

bool CkJsonObject::LoadFile(const char* path) {
    std::string content;
    std::string reason = ReadFile(path, content);
    if (reason.empty() && Load(content))
        return true;
    if (reason.empty())
        reason = impl_->error;
    *impl_ = Impl();
    impl_->error = std::string(path) + ": " + reason;
    return false;
}

std::string CkJsonObject::lastErrorText() const { return impl_->error; }

int CkJsonObject::IndexOf(std::string_view name) const {
    const JsonMember* member = impl_->Find(name);
    return member ? static_cast<int>(member - impl_->members.data()) : -1;
}

std::string CkJsonObject::stringOf(std::string_view name) const {
    const JsonMember* member = impl_->Find(name);
    return member ? std::string(UpToZero(member->text)) : std::string();
}

std::string CkJsonObject::TakeString(std::string_view name) {
    const int index = IndexOf(name);
    if (index < 0)
        return {};
    JsonMember& member = impl_->members[static_cast<std::size_t>(index)];
    member.kind = JsonMember::Kind::String;
    std::string text = std::exchange(member.text, {});
    text.resize(UpToZero(text).size());
    return text;
}

int CkJsonObject::IntOf(std::string_view name) const {
    const JsonMember* member = impl_->Find(name);
    switch (member ? member->kind : JsonMember::Kind::Other) {
    case JsonMember::Kind::String:
    case JsonMember::Kind::Number:
        return NumberAsInt(member->text);
    case JsonMember::Kind::Boolean:
        return member->text == "true";
    case JsonMember::Kind::Other:
        break;
    }
    return 0;
}

void CkJsonObject::AppendInt(std::string_view name, int value) {
    impl_->members.push_back({std::string(name), std::to_string(value), JsonMember::Kind::Number});
}

void CkJsonObject::AppendString(std::string_view name, std::string value) {
    value.resize(UpToZero(value).size());
    impl_->members.push_back({std::string(name), std::move(value), JsonMember::Kind::String});
}

void CkJsonObject::AppendBool(std::string_view name, bool value) {
    impl_->members.push_back({std::string(name), value ? "true" : "false", JsonMember::Kind::Boolean});
}

std::string CkJsonObject::emit() const {
    std::size_t size = 2;
    for (const JsonMember& member : impl_->members)
        size += member.name.size() + member.text.size() + 6;
    std::string json;
    json.reserve(size);
    json += '{';
    for (const JsonMember& member : impl_->members) {
        if (json.size() > 1)
            json += ',';
        AppendQuotedJson(json, member.name);
        json += ':';
        if (member.kind == JsonMember::Kind::String)
            AppendQuotedJson(json, member.text);
        else
            json += member.text;
    }
    json += '}';
    return json;
}
