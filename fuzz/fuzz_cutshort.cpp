// The driver's detection of structures that were cut at a zero byte: whole ones and texts are never refused,
// cut ones always; and the DigestInfo that it makes itself is one.

#include "CutShort.h"
#include "Mechanisms.h"
#include "Require.h"

#include <openssl/x509.h>

#include <algorithm>
#include <memory>
#include <span>
#include <string>
#include <vector>

using namespace tokendriver;

namespace {

using Data = std::span<const std::uint8_t>;

constexpr CK_MECHANISM_TYPE kHashAndSign[] = {CKM_SHA256_RSA_PKCS, CKM_SHA384_RSA_PKCS, CKM_SHA512_RSA_PKCS};

struct FreeSignature {
    void operator()(X509_SIG* info) const { X509_SIG_free(info); }
};

bool IsRefused(Data data) {
    return IsCutShort(CKM_RSA_PKCS, data) ||
           std::any_of(std::begin(kHashAndSign), std::end(kHashAndSign),
                       [&](auto mechanism) { return IsCutShort(mechanism, data); });
}

/// A value around `content`, with its length in DER.
std::vector<std::uint8_t> Value(std::uint8_t tag, std::vector<std::uint8_t> content) {
    const std::size_t size = content.size();
    std::vector<std::uint8_t> head{tag};
    if (size >= 0x100)
        head.insert(head.end(), {0x82, static_cast<std::uint8_t>(size >> 8)});
    else if (size >= 0x80)
        head.push_back(0x81);
    head.push_back(static_cast<std::uint8_t>(size));
    content.insert(content.begin(), head.begin(), head.end());
    return content;
}

/// A structure of the sort, whole and cut anywhere behind what it is recognised by.
void CheckCutting(std::uint8_t tag, std::vector<std::uint8_t> begin, Data rest, bool (*isCut)(Data)) {
    const std::size_t recognised = begin.size();
    begin.insert(begin.end(), rest.begin(), rest.end());
    const std::vector<std::uint8_t> whole = Value(tag, begin);
    Require(!isCut(whole), "a whole structure is not cut");
    for (std::size_t size = whole.size() - begin.size() + recognised; size < whole.size(); ++size)
        Require(isCut(Data(whole).first(size)), "a cut structure is cut");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const Data input(data, std::min<std::size_t>(size, 2000));
    const bool refused = IsRefused(input);
    Require(!refused || input.empty() || input[0] == 0x30 || input[0] == 0x31, "only structures are refused");
    Require(
        !refused ||
            !std::all_of(input.begin(), input.end(), [](auto byte) { return byte >= 0x20 && byte < 0x7F; }) ||
            input.size() < 15,
        "printable text is not refused");

    CheckCutting(0x31, {0x30, 0x18, 0x06, 0x09, 0x2a, 0x86, 0x48, 0x86, 0xf7, 0x0d, 0x01, 0x09, 0x03,
                        0x31, 0x0b, 0x06, 0x09, 0x2a, 0x86, 0x48, 0x86, 0xf7, 0x0d, 0x01, 0x07, 0x01},
                 input, IsCutSignedAttributes);
    CheckCutting(0x30, {0x30, 0x0b, 0x06, 0x09, 0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x02, 0x01}, input,
                 IsCutDigestInfo);

    for (const CK_MECHANISM_TYPE mechanism : kHashAndSign) {
        const std::vector<CK_BYTE> info = SignedBlock(mechanism, input);
        const unsigned char* next = info.data();
        const std::unique_ptr<X509_SIG, FreeSignature> parsed(
            d2i_X509_SIG(nullptr, &next, static_cast<long>(info.size())));
        Require(parsed && next == info.data() + info.size(), "a DigestInfo is one");
        Require(!IsCutShort(CKM_RSA_PKCS, info), "the driver's own DigestInfo is not refused");
    }
    return 0;
}
