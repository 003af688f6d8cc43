#pragma once

#include <climits>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <utility>

/// Makes choices and strings out of an input as clang's FuzzedDataProvider does (numbers from the end,
/// strings from the begin), so that the corpora run where there is no clang. An input that is used up gives
/// the smallest numbers and empty strings.
class FuzzedChoices {
public:
    FuzzedChoices(const std::uint8_t* data, std::size_t size) : left_(data, data + size) {}

    std::size_t BytesLeft() const { return left_.size(); }

    template <class Number>
    Number InRange(Number least, Number most) {
        const std::uint64_t range = static_cast<std::uint64_t>(most) - static_cast<std::uint64_t>(least);
        std::uint64_t taken = 0;
        for (std::size_t bits = 0; bits < sizeof(Number) * CHAR_BIT && range >> bits > 0 && !left_.empty();
             bits += CHAR_BIT) {
            taken = taken << CHAR_BIT | static_cast<unsigned char>(left_.back());
            left_.pop_back();
        }
        if (range != UINT64_MAX)
            taken %= range + 1;
        return static_cast<Number>(static_cast<std::uint64_t>(least) + taken);
    }

    template <class Number>
    Number Any() {
        return InRange(std::numeric_limits<Number>::min(), std::numeric_limits<Number>::max());
    }

    bool Bool() { return (Any<unsigned char>() & 1) != 0; }

    template <class Value, std::size_t size>
    Value OneOf(const Value (&values)[size]) {
        return values[InRange<std::size_t>(0, size - 1)];
    }

    /// Ends at a backslash that another one does not follow.
    std::string String(std::size_t most) {
        std::string text;
        std::size_t used = 0;
        while (text.size() < most && used < left_.size()) {
            char next = left_[used++];
            if (next == '\\' && used < left_.size() && (next = left_[used++]) != '\\')
                break;
            text += next;
        }
        left_.erase(0, used);
        return text;
    }

    std::string Rest() { return std::exchange(left_, {}); }

private:
    std::string left_;
};
