#include "FakeToken.h"

#include <algorithm>

struct SignsConstantBytes : FakeToken {
    CK_RV Sign(Session& session, std::span<const CK_BYTE> data, CK_BYTE* signature,
               CK_ULONG& length) override {
        const CK_RV answer = FakeToken::Sign(session, data, signature, length);
        if (answer == CKR_OK && signature != nullptr)
            std::fill_n(signature, length, CK_BYTE{0x5a});
        return answer;
    }
};

FAKE_TOKEN(SignsConstantBytes)
