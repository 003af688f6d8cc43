// The driver's detection of structures that were cut at a zero byte: whole ones and texts are never refused,
// cut ones always; and the DigestInfo that it makes itself is one.

#include "CutShort.h"
#include "Mechanisms.h"
#include "Require.h"

#include "support/Bytes.h"
#include "support/OpenSsl.h"

#include <algorithm>
#include <span>
#include <string>
#include <vector>

using namespace tokendriver;

namespace {

using Data = std::span<const std::uint8_t>;

constexpr CK_MECHANISM_TYPE kHashAndSign[] = {CKM_SHA256_RSA_PKCS, CKM_SHA384_RSA_PKCS, CKM_SHA512_RSA_PKCS};

bool IsRefused(Data data) {
    return IsCutShort(CKM_RSA_PKCS, data) ||
           std::any_of(std::begin(kHashAndSign), std::end(kHashAndSign),
                       [&](auto mechanism) { return IsCutShort(mechanism, data); });
}

Data DataOf(const std::string& bytes) { return {Octets(bytes), bytes.size()}; }

/// A structure of the sort, whole and cut anywhere behind what it is recognised by.
void CheckCutting(int tag, const std::string& begin, const std::string& rest, bool (*isCut)(Data)) {
    const std::string whole = DerValue(tag, begin + rest);
    Require(!isCut(DataOf(whole)), "a whole structure is not cut");
    for (std::size_t size = whole.size() - rest.size(); size < whole.size(); ++size)
        Require(isCut(DataOf(whole).first(size)), "a cut structure is cut");
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

    const std::string rest(input.begin(), input.end());
    CheckCutting(0x31, FromHex("3018 06092a864886f70d010903 310b 06092a864886f70d010701"), rest,
                 IsCutSignedAttributes);
    CheckCutting(0x30, FromHex("300b 0609608648016503040201"), rest, IsCutDigestInfo);

    for (const CK_MECHANISM_TYPE mechanism : kHashAndSign) {
        const std::vector<CK_BYTE> info = SignedBlock(mechanism, input);
        Require(Decoded(d2i_X509_SIG, {reinterpret_cast<const char*>(info.data()), info.size()}) != nullptr,
                "a DigestInfo is one");
        Require(!IsCutShort(CKM_RSA_PKCS, info), "the driver's own DigestInfo is not refused");
    }
    return 0;
}
