#include "AsnNode.h"

#include <optional>

namespace {

// X.690 section 8.1.2: the identifier octets.
constexpr unsigned kClassShift = 6;
constexpr unsigned kConstructedBit = 0x20;
constexpr std::uint32_t kHighTag = 0x1F;
constexpr unsigned kMoreBit = 0x80;

/// A value of 4 GiB does not come through a pipe whose messages end at 2 GiB.
constexpr std::size_t kMaxLengthOctets = 4;

/// Takes DER apart from the front; nothing is read when something is wrong.
class DerReader {
public:
    explicit DerReader(std::string_view der) : rest_(der) {}

    std::string_view rest() const { return rest_; }

    /// The next value with all that is in it, or null.
    std::shared_ptr<AsnNode> ReadNode(int levelsLeft, std::size_t& nodesLeft) {
        if (levelsLeft == 0 || nodesLeft == 0)
            return nullptr;
        --nodesLeft;
        auto node = std::make_shared<AsnNode>();
        if (!ReadTag(*node))
            return nullptr;
        const std::optional<std::size_t> length = ReadLength();
        if (!length || *length > rest_.size())
            return nullptr;
        const std::string_view content = rest_.substr(0, *length);
        rest_.remove_prefix(*length);
        if (!node->constructed) {
            node->content = content;
            return node;
        }
        for (DerReader reader(content); !reader.rest().empty();) {
            std::shared_ptr<AsnNode> child = reader.ReadNode(levelsLeft - 1, nodesLeft);
            if (!child)
                return nullptr;
            node->children.push_back(std::move(child));
        }
        return node;
    }

private:
    std::optional<unsigned> ReadOctet() {
        if (rest_.empty())
            return std::nullopt;
        const unsigned octet = static_cast<unsigned char>(rest_.front());
        rest_.remove_prefix(1);
        return octet;
    }

    bool ReadTag(AsnNode& node) {
        const std::optional<unsigned> octet = ReadOctet();
        if (!octet)
            return false;
        node.tagClass = static_cast<AsnClass>(*octet >> kClassShift);
        node.constructed = *octet & kConstructedBit;
        node.tag = *octet & kHighTag;
        if (node.tag == kHighTag) {
            const std::optional<std::uint32_t> tag = ReadHighTag();
            if (!tag)
                return false;
            node.tag = *tag;
        }
        // The end-of-contents octets belong to the indefinite lengths that DER has not.
        return node.tagClass != AsnClass::Universal || node.tag != 0;
    }

    /// X.690 section 8.1.2.4: seven bits an octet, no leading zero octet, none for the numbers that fit the
    /// short form.
    std::optional<std::uint32_t> ReadHighTag() {
        std::uint64_t tag = 0;
        for (bool more = true; more;) {
            const std::optional<unsigned> octet = ReadOctet();
            if (!octet || (tag == 0 && *octet == kMoreBit))
                return std::nullopt;
            tag = tag << 7 | (*octet & ~kMoreBit);
            if (tag > kMaxAsnTag)
                return std::nullopt;
            more = *octet & kMoreBit;
        }
        if (tag < kHighTag)
            return std::nullopt;
        return static_cast<std::uint32_t>(tag);
    }

    /// X.690 section 10.1: the definite form in as few octets as possible.
    std::optional<std::size_t> ReadLength() {
        const std::optional<unsigned> first = ReadOctet();
        if (!first || !(*first & kMoreBit))
            return first;
        const std::size_t octets = *first & ~kMoreBit;
        if (octets == 0 || octets > kMaxLengthOctets)
            return std::nullopt;
        std::size_t length = 0;
        for (std::size_t i = 0; i < octets; ++i) {
            const std::optional<unsigned> octet = ReadOctet();
            if (!octet || (i == 0 && *octet == 0))
                return std::nullopt;
            length = length << 8 | *octet;
        }
        if (length < kMoreBit)
            return std::nullopt;
        return length;
    }

    std::string_view rest_;
};

std::string LengthOctets(std::size_t length) {
    if (length < kMoreBit)
        return {static_cast<char>(length)};
    std::string octets;
    for (; length > 0; length >>= 8)
        octets.insert(octets.begin(), static_cast<char>(length));
    octets.insert(octets.begin(), static_cast<char>(kMoreBit | octets.size()));
    return octets;
}

std::string TagOctets(const AsnNode& node) {
    const unsigned leading =
        static_cast<unsigned>(node.tagClass) << kClassShift | (node.constructed ? kConstructedBit : 0);
    if (node.tag < kHighTag)
        return {static_cast<char>(leading | node.tag)};
    std::string octets{static_cast<char>(node.tag & ~kMoreBit)};
    for (std::uint32_t tag = node.tag >> 7; tag > 0; tag >>= 7)
        octets.insert(octets.begin(), static_cast<char>(kMoreBit | tag));
    octets.insert(octets.begin(), static_cast<char>(leading | kHighTag));
    return octets;
}

/// Writes DER front to back. The lengths of all values are measured first, in the order in which they are
/// written.
class DerWriter {
public:
    explicit DerWriter(const AsnNode& root) : root_(root), size_(Measure(root)) {}

    std::string Write() {
        der_.reserve(size_);
        Write(root_);
        return std::move(der_);
    }

private:
    /// The size of the whole encoding of `node`.
    std::size_t Measure(const AsnNode& node) {
        const std::size_t position = lengths_.size();
        lengths_.push_back(node.content.size());
        for (const std::shared_ptr<AsnNode>& child : node.children)
            lengths_[position] += Measure(*child);
        const std::size_t length = lengths_[position];
        return TagOctets(node).size() + LengthOctets(length).size() + length;
    }

    void Write(const AsnNode& node) {
        der_ += TagOctets(node);
        der_ += LengthOctets(lengths_[nextLength_++]);
        der_ += node.content;
        for (const std::shared_ptr<AsnNode>& child : node.children)
            Write(*child);
    }

    const AsnNode& root_;
    std::vector<std::size_t> lengths_;
    std::size_t nextLength_ = 0;
    std::size_t size_;
    std::string der_;
};

} // namespace

std::shared_ptr<AsnNode> AsnFromDer(std::string_view der) {
    std::shared_ptr<AsnNode> node = TakeAsnFromDer(der, kMaxAsnDepth);
    return der.empty() ? node : nullptr;
}

std::shared_ptr<AsnNode> TakeAsnFromDer(std::string_view& der, int maxDepth) {
    DerReader reader(der);
    std::size_t nodesLeft = kMaxAsnNodes;
    std::shared_ptr<AsnNode> node = reader.ReadNode(maxDepth, nodesLeft);
    der = reader.rest();
    return node;
}

std::string AsnToDer(const AsnNode& node) { return DerWriter(node).Write(); }
