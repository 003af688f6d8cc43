#include "FakeToken.h"

/// After the first search another token of the same name and number is there, and the module does not notice.
struct ExchangedAndKeepsItsSession : FakeToken {
    struct Other : FakeToken {
        std::vector<Object> MakeObjects() override {
            return {Certificate({0xab, 0xcd, 0x01}, {.name = "Somebody else"}),
                    PrivateKey({0xab, 0xcd, 0x01})};
        }
    };
    CK_RV FindObjectsInit(Session& session, std::span<const CK_ATTRIBUTE> wanted) override {
        ++searches;
        return FakeToken::FindObjectsInit(session, wanted);
    }
    CK_RV GetAttributeValue(Session& session, CK_OBJECT_HANDLE object,
                            std::span<CK_ATTRIBUTE> wanted) override {
        return searches > 1 ? other.GetAttributeValue(session, object, wanted)
                            : FakeToken::GetAttributeValue(session, object, wanted);
    }
    Other other;
    unsigned searches = 0;
};

FAKE_TOKEN(ExchangedAndKeepsItsSession)
