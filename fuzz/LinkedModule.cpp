#include "LinkedModule.h"

#include "FakeToken.h"
#include "Require.h"
#include "TokenManager.h"

#include <algorithm>
#include <cstring>

LinkedModule linkedModule;

namespace {

/// Does what is right, and answers what the input says.
class LinkedToken : public FakeToken {
public:
    LinkedToken() { strict = false; }

    std::vector<Object> MakeObjects() override {
        std::vector<Object> objects;
        for (const auto& [id, der] : linkedModule.certificates) {
            objects.push_back(CertificateOf(Text(id), Text(der)));
            objects.push_back(PrivateKey(Text(id.c_str()))); // the host reads ids up to the first zero byte
        }
        return objects;
    }

    CK_RV Serve(const Call& call, const std::function<CK_RV()>& work) override {
        const CK_RV right = work();
        for (const auto& [name, number] : call.out)
            if (number != nullptr)
                *number = linkedModule.number(*number);
        return linkedModule.answer(right);
    }

    /// All the room that the caller gave is used: a length that he takes for more is a bug of his.
    CK_RV GetAttributeValue(Session& session, CK_OBJECT_HANDLE object,
                            std::span<CK_ATTRIBUTE> wanted) override {
        for (const CK_ATTRIBUTE& attribute : wanted)
            if (attribute.pValue != nullptr)
                std::memset(attribute.pValue, '.', attribute.ulValueLen);
        return FakeToken::GetAttributeValue(session, object, wanted);
    }

    /// A signature is made up out of what is signed: quickly, and the same in every run.
    CK_RV Sign(Session& session, std::span<const CK_BYTE> data, CK_BYTE* signature,
               CK_ULONG& length) override {
        if (!std::exchange(session.signing, std::nullopt))
            return CKR_OPERATION_NOT_INITIALIZED;
        std::string& made = linkedModule.signature;
        made = linkedModule.signedBytes.assign(data.begin(), data.end());
        made.resize(256, 'S'); // RSA 2048
        Require(length >= made.size(), "there is room for a signature");
        length = made.size();
        std::copy(made.begin(), made.end(), signature);
        return CKR_OK;
    }
};

} // namespace

FAKE_TOKEN(LinkedToken)

void LinkedModule::PlugIn() {
    static const bool isLoaded = [] {
        TokenDriverFullPath.clear();
        return tokenManager.LoadTokenDrivers().success;
    }();
    Require(isLoaded, "the host finds the module that is linked in");
    NewFakeToken();
    TokenManager::TokenState = TOKEN_NOT_FOUND;
    tokenManager.hTokenSession = 0;
    tokenManager.TokenCertList.Clear();
    tokenManager.TokenUserPin = "1234";
    SelectCertDisplayListCKA_ID.clear();
    selCKA_ID.clear();
}
