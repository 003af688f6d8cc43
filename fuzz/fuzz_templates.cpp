// The driver's translation of attributes, both ways: search templates of the host for a module, and a
// module's answers, right or nonsense, for the host. Buffers are exactly as long as they are said to be.

#include "Attributes.h"
#include "FuzzedChoices.h"
#include "Pkcs11Error.h"
#include "Require.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>

using namespace tokendriver;

namespace {

constexpr CK_ATTRIBUTE_TYPE kTypes[] = {CKA_CLASS, CKA_TOKEN,    CKA_CERTIFICATE_TYPE, CKA_ID,
                                        CKA_VALUE, CKA_KEY_TYPE, CKA_MODULUS_BITS,     CKA_LABEL};

/// Attributes with memory of their own, each value in a block of exactly its length.
struct OwnedTemplate {
    std::vector<std::unique_ptr<CK_BYTE[]>> values;
    std::vector<CK_ATTRIBUTE> attributes;

    void Add(CK_ATTRIBUTE_TYPE type, const std::string& value) {
        values.emplace_back(new CK_BYTE[value.size()]);
        std::copy(value.begin(), value.end(), values.back().get());
        attributes.push_back({type, values.back().get(), value.size()});
    }
};

std::string ValueOf(const CK_ATTRIBUTE& attribute) {
    const auto* bytes = static_cast<const char*>(attribute.pValue);
    return {bytes, bytes + attribute.ulValueLen};
}

void CheckSearch(FuzzedChoices& input) {
    OwnedTemplate given;
    for (int more = input.InRange(0, 6); more > 0; --more) {
        const CK_ATTRIBUTE_TYPE type = input.Bool() ? input.OneOf(kTypes) : input.Any<CK_ATTRIBUTE_TYPE>();
        given.Add(type, input.String(40));
    }
    if (given.attributes.empty() == false && input.InRange(0, 9) == 9)
        given.attributes.back().ulValueLen = kMaxAttributeBytes + 1;
    SearchTemplate wanted = [&] {
        try {
            return SearchTemplate(given.attributes.data(), given.attributes.size());
        } catch (const Pkcs11Error& refused) {
            Require(refused.Code() == CKR_ATTRIBUTE_VALUE_INVALID, "only the length was out of bounds");
            return SearchTemplate(nullptr, 0);
        }
    }();

    const std::vector<CK_ATTRIBUTE> inside = wanted.Attributes();
    Require(inside.empty() || inside.size() == given.attributes.size(), "no attribute is lost");
    for (std::size_t i = 0; i < inside.size(); ++i) {
        Require(inside[i].type == given.attributes[i].type, "the types stay");
        const std::string before = ValueOf(given.attributes[i]);
        const std::string after = ValueOf(inside[i]);
        if (inside[i].type == CKA_ID) {
            const std::string hex = HexText({static_cast<const CK_BYTE*>(inside[i].pValue), after.size()});
            std::string asked = before.substr(0, hex.size());
            std::transform(asked.begin(), asked.end(), asked.begin(), [](char c) {
                return c >= 'a' && c <= 'f' ? static_cast<char>(c - 'a' + 'A') : c;
            });
            const std::string rest = before.substr(asked.size());
            Require(wanted.MatchesNothing() ||
                        (asked == hex && (rest.empty() || rest == std::string(1, '\0'))),
                    "an id is its hex text, with or without a zero byte");
        } else if (after != before) {
            Require(before.size() == 4 && after == before + std::string(4, '\0'), "a number is widened");
        }
    }
}

/// What the module answers to the next C_GetAttributeValue: its code, and a length and content per attribute.
FuzzedChoices* moduleAnswers = nullptr;

CK_RV ModuleGetAttributeValue(CK_SESSION_HANDLE, CK_OBJECT_HANDLE, CK_ATTRIBUTE* attributes, CK_ULONG count) {
    for (CK_ATTRIBUTE* attribute = attributes; attribute != attributes + count; ++attribute) {
        const CK_ULONG room = attribute->ulValueLen;
        if (attribute->pValue != nullptr)
            std::memset(attribute->pValue, moduleAnswers->Any<CK_BYTE>(), room);
        switch (moduleAnswers->InRange(0, 3)) {
        case 0:
            attribute->ulValueLen = moduleAnswers->InRange<CK_ULONG>(0, 100);
            break;
        case 1:
            attribute->ulValueLen = CK_UNAVAILABLE_INFORMATION;
            break;
        case 2:
            attribute->ulValueLen = moduleAnswers->Any<CK_ULONG>();
            break;
        default:
            break; // as much as there is room for
        }
    }
    static constexpr CK_RV kAnswers[] = {CKR_OK, CKR_ATTRIBUTE_SENSITIVE, CKR_ATTRIBUTE_TYPE_INVALID,
                                         CKR_BUFFER_TOO_SMALL, CKR_DEVICE_REMOVED};
    return moduleAnswers->OneOf(kAnswers);
}

void CheckRead(FuzzedChoices& input) {
    OwnedTemplate wanted;
    for (int more = input.InRange(0, 4); more > 0; --more) {
        wanted.Add(input.OneOf(kTypes), std::string(input.InRange<std::size_t>(0, 50), '?'));
        if (input.Bool())
            wanted.attributes.back().pValue = nullptr;
    }
    const std::vector<CK_ATTRIBUTE> before = wanted.attributes;

    CK_FUNCTION_LIST module{};
    module.C_GetAttributeValue = ModuleGetAttributeValue;
    moduleAnswers = &input;
    KnownId learntId;
    const CK_RV answer =
        ReadAttributes(module, 1, 1, wanted.attributes.data(), wanted.attributes.size(), learntId);
    if (answer == CKR_DEVICE_REMOVED)
        return;
    for (std::size_t i = 0; i < before.size(); ++i) {
        const CK_ATTRIBUTE& attribute = wanted.attributes[i];
        Require(attribute.type == before[i].type && attribute.pValue == before[i].pValue, "the rest stays");
        if (attribute.ulValueLen == CK_UNAVAILABLE_INFORMATION)
            continue;
        if (attribute.pValue != nullptr)
            Require(attribute.ulValueLen <= before[i].ulValueLen, "no length is beyond its buffer");
        Require(attribute.ulValueLen <= kMaxAttributeBytes, "no length is beyond the limit");
        if (attribute.type == CKA_ID && attribute.pValue != nullptr) {
            const std::string text = ValueOf(attribute);
            Require(text.size() % 2 == 0 && text.find_first_not_of("0123456789ABCDEF") == std::string::npos,
                    "an id is upper-case hex");
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzedChoices input(data, size);
    if (input.Bool())
        CheckSearch(input);
    else
        CheckRead(input);
    return 0;
}
