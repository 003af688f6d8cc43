// libFuzzer's mutator for inputs that begin with one DER value: it changes a value somewhere in the tree and
// writes the lengths around it anew, so that what comes out is still DER all the way down. What stands behind
// the value stays. Every other time, and when the input is no DER, the plain mutator is used.

#include <openssl/asn1.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t maxSize);

namespace {

struct Value {
    std::string tag; ///< the identifier octets
    std::string content;
    std::vector<Value> children; ///< in place of content when not empty
};

constexpr int kMaxDepth = 40;

bool ReadOne(const std::uint8_t*& next, const std::uint8_t* end, int depth, Value& value);

bool ReadChildren(const std::string& content, int depth, std::vector<Value>& children) {
    const auto* next = reinterpret_cast<const std::uint8_t*>(content.data());
    const auto* end = next + content.size();
    while (next != end)
        if (!ReadOne(next, end, depth, children.emplace_back()))
            return false;
    return true;
}

bool ReadOne(const std::uint8_t*& next, const std::uint8_t* end, int depth, Value& value) {
    if (depth == kMaxDepth)
        return false;
    const std::uint8_t* content = next;
    long length = 0;
    int tag = 0, tagClass = 0;
    const int header = ASN1_get_object(&content, &length, &tag, &tagClass, end - next);
    if (header & 0x81) // an error, or an indefinite length
        return false;
    std::size_t tagSize = 1;
    if ((*next & 0x1F) == 0x1F)
        while (next[tagSize++] & 0x80) {
        }
    value.tag.assign(next, next + tagSize);
    value.content.assign(content, content + length);
    next = content + length;
    // The OCTET STRINGs and BIT STRINGs of certificates often hold DER themselves: they stay as they are.
    if ((header & V_ASN1_CONSTRUCTED) && !ReadChildren(value.content, depth + 1, value.children))
        value.children.clear();
    return true;
}

std::string Write(const Value& value) {
    std::string content = value.children.empty() ? value.content : std::string();
    for (const Value& child : value.children)
        content += Write(child);
    std::string length;
    for (std::size_t rest = content.size(); rest > 0; rest >>= 8)
        length.insert(length.begin(), static_cast<char>(rest));
    if (content.size() < 0x80)
        length.assign(1, static_cast<char>(content.size()));
    else
        length.insert(length.begin(), static_cast<char>(0x80 | length.size()));
    return value.tag + length + content;
}

void Collect(Value& value, std::vector<Value*>& all) {
    all.push_back(&value);
    for (Value& child : value.children)
        Collect(child, all);
}

std::string PlainMutation(std::string bytes) {
    const std::size_t size = bytes.size();
    bytes.resize(size + 64);
    bytes.resize(LLVMFuzzerMutate(reinterpret_cast<std::uint8_t*>(bytes.data()), size, bytes.size()));
    return bytes;
}

/// Does one thing to one value of the tree.
void Mutate(Value& root, std::minstd_rand& random) {
    std::vector<Value*> all;
    Collect(root, all);
    const auto any = [&]() -> Value& { return *all[random() % all.size()]; };
    Value& value = any();
    switch (random() % 7) {
    case 0: // another tag
        value.tag[0] = static_cast<char>(random());
        if ((value.tag[0] & 0x1F) != 0x1F)
            value.tag.resize(1);
        else if (value.tag.size() == 1)
            value.tag += "\x7F";
        break;
    case 1: // a copy of another value in its place
        value = Value(any());
        break;
    case 2: // a copy of another value in it
        value.children.push_back(Value(any()));
        break;
    case 3: // one value less
        if (!value.children.empty())
            value.children.erase(value.children.begin() +
                                 static_cast<std::ptrdiff_t>(random() % value.children.size()));
        break;
    case 4:
        std::shuffle(value.children.begin(), value.children.end(), random);
        break;
    default: // another content
        if (value.children.empty())
            value.content = PlainMutation(value.content);
        else
            value.children[random() % value.children.size()].content = PlainMutation({});
    }
}

} // namespace

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maxSize,
                                               unsigned seed) {
    std::minstd_rand random(seed);
    const std::uint8_t* next = data;
    Value root;
    if (random() % 2 == 0 && size > 0 && ReadOne(next, data + size, 0, root)) {
        const std::string rest(next, static_cast<const std::uint8_t*>(data + size));
        for (unsigned times = 1 + static_cast<unsigned>(random() % 3); times > 0; --times)
            Mutate(root, random);
        const std::string mutated = Write(root) + rest;
        if (mutated.size() <= maxSize) {
            std::memcpy(data, mutated.data(), mutated.size());
            return mutated.size();
        }
    }
    return LLVMFuzzerMutate(data, size, maxSize);
}
