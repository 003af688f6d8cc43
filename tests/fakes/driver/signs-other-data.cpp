#include "FakeToken.h"

struct SignsOtherData : FakeToken {
    CK_RV Sign(Session& session, std::span<const CK_BYTE> data, CK_BYTE* signature,
               CK_ULONG& length) override {
        Bytes other(data.begin(), data.end());
        if (!other.empty())
            other.back() ^= 1;
        return FakeToken::Sign(session, other, signature, length);
    }
};

FAKE_TOKEN(SignsOtherData)
