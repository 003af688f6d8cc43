#include "Attributes.h"

#include "Pkcs11Error.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

namespace tokendriver {

namespace {

/// The standard's attributes whose value is a CK_ULONG.
constexpr std::array kNumbers = {
    CKA_CLASS,
    CKA_CERTIFICATE_TYPE,
    CKA_CERTIFICATE_CATEGORY,
    CKA_JAVA_MIDP_SECURITY_DOMAIN,
    CKA_KEY_TYPE,
    CKA_MODULUS_BITS,
    CKA_PRIME_BITS,
    CKA_SUB_PRIME_BITS,
    CKA_VALUE_BITS,
    CKA_VALUE_LEN,
    CKA_KEY_GEN_MECHANISM,
    CKA_NAME_HASH_ALGORITHM,
    CKA_AUTH_PIN_FLAGS,
    CKA_HW_FEATURE_TYPE,
    CKA_MECHANISM_TYPE,
    CKA_PIXEL_X,
    CKA_PIXEL_Y,
    CKA_RESOLUTION,
    CKA_CHAR_ROWS,
    CKA_CHAR_COLUMNS,
    CKA_BITS_PER_PIXEL,
};

bool IsNumber(CK_ATTRIBUTE_TYPE type) {
    return std::find(kNumbers.begin(), kNumbers.end(), type) != kNumbers.end();
}

int HexDigit(CK_BYTE character) {
    if (character >= '0' && character <= '9')
        return character - '0';
    if (character >= 'A' && character <= 'F')
        return character - 'A' + 10;
    if (character >= 'a' && character <= 'f')
        return character - 'a' + 10;
    return -1;
}

template <class Number>
Number ReadNumber(const Bytes& value) {
    Number number{};
    std::memcpy(&number, value.data(), sizeof number);
    return number;
}

} // namespace

std::string HexText(std::span<const CK_BYTE> bytes) {
    static constexpr char kDigits[] = "0123456789ABCDEF";
    std::string text(2 * bytes.size(), '\0');
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        text[2 * i] = kDigits[bytes[i] >> 4];
        text[2 * i + 1] = kDigits[bytes[i] & 15];
    }
    return text;
}

std::optional<Bytes> BytesOfHexText(const CK_BYTE* text, std::size_t length) {
    if (length % 2 == 1 && text[length - 1] == 0)
        --length;
    if (length % 2 == 1)
        return std::nullopt;
    Bytes bytes;
    bytes.reserve(length / 2);
    for (std::size_t at = 0; at < length; at += 2) {
        const int high = HexDigit(text[at]);
        const int low = HexDigit(text[at + 1]);
        if (high < 0 || low < 0)
            return std::nullopt;
        bytes.push_back(static_cast<CK_BYTE>(high << 4 | low));
    }
    return bytes;
}

SearchTemplate::SearchTemplate(const CK_ATTRIBUTE* given, CK_ULONG count) {
    if (count > kMaxTemplateAttributes || (given == nullptr && count > 0))
        throw Pkcs11Error(CKR_ARGUMENTS_BAD);
    entries_.reserve(count);
    std::for_each(given, given + count, [this](const CK_ATTRIBUTE& attribute) { Add(attribute); });
}

void SearchTemplate::Add(const CK_ATTRIBUTE& given) {
    if (given.pValue == nullptr && given.ulValueLen > 0)
        throw Pkcs11Error(CKR_ARGUMENTS_BAD);
    if (given.ulValueLen > kMaxAttributeBytes)
        throw Pkcs11Error(CKR_ATTRIBUTE_VALUE_INVALID);
    const auto* bytes = static_cast<const CK_BYTE*>(given.pValue);
    Entry entry{given.type, Bytes(bytes, bytes + given.ulValueLen)};

    if (given.type == CKA_ID) {
        const std::optional<Bytes> raw = BytesOfHexText(bytes, given.ulValueLen);
        matchesNothing_ = matchesNothing_ || !raw;
        entry.value = raw.value_or(Bytes{});
        id_ = raw;
        idText_ =
            raw ? HexText(*raw) : std::string(bytes, std::find(bytes, bytes + given.ulValueLen, CK_BYTE{0}));
    } else if (IsNumber(given.type) && given.ulValueLen == sizeof(std::uint32_t)) {
        const CK_ULONG wide = ReadNumber<std::uint32_t>(entry.value);
        entry.value.resize(sizeof wide);
        std::memcpy(entry.value.data(), &wide, sizeof wide);
    }
    if (given.type == CKA_CLASS && entry.value.size() == sizeof(CK_OBJECT_CLASS))
        objectClass_ = ReadNumber<CK_OBJECT_CLASS>(entry.value);
    entries_.push_back(std::move(entry));
}

std::vector<CK_ATTRIBUTE> SearchTemplate::Attributes() {
    std::vector<CK_ATTRIBUTE> attributes;
    attributes.reserve(entries_.size());
    for (Entry& entry : entries_)
        attributes.push_back({entry.type, entry.value.data(), entry.value.size()});
    return attributes;
}

SearchTemplate SearchTemplate::WithId(const Bytes& id) const {
    SearchTemplate same = *this;
    if (id_ == id)
        return same;
    for (Entry& entry : same.entries_)
        if (entry.type == CKA_ID)
            entry.value = id;
    same.id_ = id;
    same.matchesNothing_ = false;
    return same;
}

bool SearchTemplate::IsForAllCertificates() const {
    const auto isOne = [](const Entry& entry) {
        if (entry.type == CKA_TOKEN)
            return entry.value == Bytes{CK_TRUE};
        const bool isNumber = entry.value.size() == sizeof(CK_ULONG);
        return isNumber &&
               ((entry.type == CKA_CLASS && ReadNumber<CK_ULONG>(entry.value) == CKO_CERTIFICATE) ||
                (entry.type == CKA_CERTIFICATE_TYPE && ReadNumber<CK_ULONG>(entry.value) == CKC_X_509));
    };
    return objectClass_.has_value() && std::all_of(entries_.begin(), entries_.end(), isOne);
}

bool HoldsLengths(CK_RV answer) {
    return answer == CKR_OK || answer == CKR_ATTRIBUTE_SENSITIVE || answer == CKR_ATTRIBUTE_TYPE_INVALID ||
           answer == CKR_BUFFER_TOO_SMALL;
}

CK_RV AnswerAttribute(CK_ATTRIBUTE& wanted, std::span<const CK_BYTE> value) {
    if (wanted.pValue != nullptr && wanted.ulValueLen < value.size()) {
        wanted.ulValueLen = CK_UNAVAILABLE_INFORMATION;
        return CKR_BUFFER_TOO_SMALL;
    }
    if (wanted.pValue != nullptr)
        std::copy(value.begin(), value.end(), static_cast<CK_BYTE*>(wanted.pValue));
    wanted.ulValueLen = value.size();
    return CKR_OK;
}

namespace {

/// Whether `length`, reported for a buffer of `capacity` bytes (no buffer: only the length was asked for),
/// can be.
bool IsPlausible(CK_ULONG length, const void* buffer, CK_ULONG capacity, CK_ULONG limit) {
    return length == CK_UNAVAILABLE_INFORMATION ||
           (length <= limit && (buffer == nullptr || length <= capacity));
}

/// The inside of one CKA_ID that was asked for: a raw buffer of half the caller's size, so that the id fits
/// in it exactly when its text fits outside.
struct IdBuffer {
    explicit IdBuffer(const CK_ATTRIBUTE& wanted)
        : raw(wanted.pValue == nullptr ? 0 : std::min(wanted.ulValueLen / 2, kMaxIdBytes)) {
        raw.reserve(1); // so that data() is never null, which would ask for the length only
    }
    Bytes raw;
};

} // namespace

CK_RV ReadAttributes(CK_FUNCTION_LIST& module, CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object,
                     CK_ATTRIBUTE* wanted, CK_ULONG count, KnownId& id) {
    if (count > kMaxTemplateAttributes || (wanted == nullptr && count > 0))
        return CKR_ARGUMENTS_BAD;
    std::vector<CK_ATTRIBUTE> inside(wanted, wanted + count);
    std::vector<IdBuffer> ids;
    ids.reserve(count);
    for (CK_ATTRIBUTE& attribute : inside) {
        ids.emplace_back(attribute.type == CKA_ID ? attribute : CK_ATTRIBUTE{});
        if (attribute.type == CKA_ID && attribute.pValue != nullptr) {
            attribute.pValue = ids.back().raw.data();
            attribute.ulValueLen = ids.back().raw.size();
        }
    }

    CK_RV answer = module.C_GetAttributeValue(session, object, inside.data(), count);
    if (!HoldsLengths(answer))
        return answer;

    bool broken = false;
    for (CK_ULONG i = 0; i < count; ++i) {
        const bool isId = wanted[i].type == CKA_ID;
        const CK_ULONG limit = isId ? kMaxIdBytes : kMaxAttributeBytes;
        const CK_ULONG capacity = isId ? ids[i].raw.size() : wanted[i].ulValueLen;
        CK_ULONG length = inside[i].ulValueLen;
        if (!IsPlausible(length, wanted[i].pValue, capacity, limit)) {
            broken = true;
            length = CK_UNAVAILABLE_INFORMATION;
        } else if (isId && length != CK_UNAVAILABLE_INFORMATION) {
            std::string text(2 * length, '0'); // as long as it is, when that alone was asked for
            if (wanted[i].pValue != nullptr) {
                id.raw.emplace(ids[i].raw.begin(), ids[i].raw.begin() + static_cast<std::ptrdiff_t>(length));
                text = HexText(*id.raw);
            }
            if (AnswerAttribute(wanted[i], BytesOf(id.text ? *id.text : text)) != CKR_OK)
                answer = CKR_BUFFER_TOO_SMALL;
            continue;
        }
        wanted[i].ulValueLen = length;
    }
    return broken ? CKR_DEVICE_ERROR : answer;
}

} // namespace tokendriver
