#include "SoftToken.h"
#include "support/Bytes.h"
#include "support/TokenObjects.h"

#include <algorithm>
#include <array>
#include <map>
#include <random>
#include <set>

// The driver over SoftHSM against SoftHSM itself: the same answers to the same standard questions, and no
// harm from questions that are none. The sequence is the same in every run.

namespace {

using Bytes = std::string;

constexpr int kQuestions = 10'000;

constexpr std::array<CK_ATTRIBUTE_TYPE, 12> kTypes = {CKA_CLASS, CKA_TOKEN,    CKA_PRIVATE,
                                                      CKA_LABEL, CKA_VALUE,    CKA_CERTIFICATE_TYPE,
                                                      CKA_ID,    CKA_SUBJECT,  CKA_ALWAYS_AUTHENTICATE,
                                                      CKA_SIGN,  CKA_KEY_TYPE, CKA_MODULUS_BITS};

/// A template by its values.
using Values = std::vector<std::pair<CK_ATTRIBUTE_TYPE, Bytes>>;

class RandomCallsTest : public DriverFixture {
protected:
    void SetUp() override {
        soft.emplace(home);
        for (const Bytes& id : {Bytes{'\0'}, Bytes{'\x41', '\0', '\x01'}, Bytes(20, '\xab')})
            soft->Store(id);
        Start();
        OpenFirstToken();
        Login();
        ASSERT_EQ(soft->Module().C_OpenSession(soft->Slot(), CKF_SERIAL_SESSION, nullptr, nullptr, &direct),
                  CKR_OK);
        // Both give the objects in the same order: so handles are told apart.
        const std::vector<CK_OBJECT_HANDLE> ours = FindByDriver({});
        const std::vector<CK_OBJECT_HANDLE> theirs = FindDirectly({});
        ASSERT_EQ(ours.size(), 6U);
        ASSERT_EQ(theirs.size(), 6U);
        for (std::size_t i = 0; i < ours.size(); ++i)
            theirHandle[ours[i]] = theirs[i];
    }

    template <class Init, class Fetch, class Final>
    static std::vector<CK_OBJECT_HANDLE> FindAll(Values values, Init init, Fetch fetch, Final final,
                                                 CK_RV& begun) {
        std::vector<CK_ATTRIBUTE> wanted = TemplateOf(values);
        std::vector<CK_OBJECT_HANDLE> found(64);
        CK_ULONG count = 0;
        begun = init(wanted.data(), wanted.size());
        if (begun == CKR_OK) {
            EXPECT_EQ(fetch(found.data(), found.size(), &count), CKR_OK);
            EXPECT_EQ(final(), CKR_OK);
        }
        found.resize(count);
        return found;
    }

    std::vector<CK_OBJECT_HANDLE> FindByDriver(Values values) {
        return FindAll(
            std::move(values), [&](auto... a) { return Driver().FindObjectsInit(session, a...); },
            [&](auto... a) { return Driver().FindObjects(session, a...); },
            [&] { return Driver().FindObjectsFinal(session); }, answer);
    }

    std::vector<CK_OBJECT_HANDLE> FindDirectly(Values values) {
        return FindAll(
            std::move(values), [&](auto... a) { return soft->Module().C_FindObjectsInit(direct, a...); },
            [&](auto... a) { return soft->Module().C_FindObjects(direct, a...); },
            [&] { return soft->Module().C_FindObjectsFinal(direct); }, directAnswer);
    }

    std::size_t Random(std::size_t below) {
        return std::uniform_int_distribution<std::size_t>(0, below - 1)(random);
    }

    Bytes RandomBytes(std::size_t most) {
        Bytes bytes(Random(most + 1), '\0');
        std::generate(bytes.begin(), bytes.end(), [this] { return static_cast<char>(Random(256)); });
        return bytes;
    }

    /// A value that the standard allows for this attribute: often one that an object has.
    Bytes StandardValue(CK_ATTRIBUTE_TYPE type) {
        switch (type) {
        case CKA_CLASS:
            return NumberValue(std::array{CKO_CERTIFICATE, CKO_PRIVATE_KEY, CKO_DATA}[Random(3)]);
        case CKA_CERTIFICATE_TYPE:
        case CKA_KEY_TYPE:
            return NumberValue(Random(2));
        case CKA_MODULUS_BITS:
            return NumberValue(2048);
        case CKA_TOKEN:
        case CKA_PRIVATE:
        case CKA_SIGN:
        case CKA_ALWAYS_AUTHENTICATE:
            return {static_cast<char>(Random(2))};
        case CKA_ID:
            return std::array{Bytes{'\0'}, Bytes{'\x41', '\0', '\x01'}, Bytes(20, '\xab'), Bytes{},
                              RandomBytes(8)}[Random(5)];
        default:
            return RandomBytes(40);
        }
    }

    std::optional<SoftToken> soft;
    CK_SESSION_HANDLE direct = 0;
    CK_RV directAnswer = CKR_OK;
    std::map<CK_OBJECT_HANDLE, CK_OBJECT_HANDLE> theirHandle;
    std::mt19937 random{20240229};
};

} // namespace

TEST_F(RandomCallsTest, StandardSearches_FindWhatTheModuleFinds) {
    std::size_t hits = 0;
    for (int i = 0; i < kQuestions; ++i) {
        Values outside;
        Values inside;
        for (std::size_t n = Random(4); n > 0; --n) {
            const CK_ATTRIBUTE_TYPE type = kTypes[Random(kTypes.size())];
            const Bytes value = StandardValue(type);
            inside.emplace_back(type, value);
            outside.emplace_back(type, type == CKA_ID ? ToHex(value) : value);
        }
        std::vector<CK_OBJECT_HANDLE> ours = FindByDriver(outside);
        const std::vector<CK_OBJECT_HANDLE> theirs = FindDirectly(inside);
        ASSERT_EQ(answer, directAnswer);
        std::transform(ours.begin(), ours.end(), ours.begin(),
                       [&](CK_OBJECT_HANDLE h) { return theirHandle.at(h); });
        ASSERT_EQ(ours, theirs) << "question " << i;
        hits += theirs.size();
    }
    EXPECT_GT(hits, static_cast<std::size_t>(kQuestions)) << "hardly anything was found: a test of nothing";
}

TEST_F(RandomCallsTest, StandardAttributeRequests_AreAnsweredAsByTheModule) {
    std::vector<CK_OBJECT_HANDLE> objects;
    for (const auto& [ours, theirs] : theirHandle)
        objects.push_back(ours);
    for (int i = 0; i < kQuestions; ++i) {
        const CK_OBJECT_HANDLE object = objects[Random(objects.size())];
        const std::size_t count = 1 + Random(4);
        std::vector<Bytes> ourRoom(count);
        std::vector<Bytes> theirRoom(count);
        std::vector<CK_ATTRIBUTE> ours;
        std::vector<CK_ATTRIBUTE> theirs;
        for (std::size_t n = 0; n < count; ++n) {
            const CK_ATTRIBUTE_TYPE type = kTypes[Random(kTypes.size())];
            const bool isSizing = Random(3) == 0;
            const std::size_t room = Random(2) == 0 ? 2000 : Random(48);
            ourRoom[n].resize(type == CKA_ID ? 2 * room : room);
            theirRoom[n].resize(room);
            ourRoom[n].reserve(1);
            theirRoom[n].reserve(1);
            ours.push_back({type, isSizing ? nullptr : ourRoom[n].data(), isSizing ? 0 : ourRoom[n].size()});
            theirs.push_back({type, isSizing ? nullptr : theirRoom[n].data(), isSizing ? 0 : room});
        }
        ASSERT_EQ(Driver().GetAttributeValue(session, object, ours.data(), count),
                  soft->Module().C_GetAttributeValue(direct, theirHandle[object], theirs.data(), count));
        for (std::size_t n = 0; n < count; ++n) {
            const bool isId = theirs[n].type == CKA_ID;
            const CK_ULONG length = theirs[n].ulValueLen;
            ASSERT_EQ(ours[n].ulValueLen, isId && length != CK_UNAVAILABLE_INFORMATION ? 2 * length : length);
            if (length == CK_UNAVAILABLE_INFORMATION || theirs[n].pValue == nullptr)
                continue;
            theirRoom[n].resize(length);
            ourRoom[n].resize(ours[n].ulValueLen);
            ASSERT_EQ(ourRoom[n], isId ? ToHex(theirRoom[n]) : theirRoom[n]);
        }
    }
}

TEST_F(RandomCallsTest, AnyQuestionAtAll_DoesNoHarm) {
    const auto anyHandle = [this] { return Random(4) == 0 ? Random(~std::size_t{0}) : Random(12); };
    for (int i = 0; i < kQuestions; ++i) {
        Values values;
        for (std::size_t n = Random(6); n > 0; --n) {
            const CK_ATTRIBUTE_TYPE type = Random(8) == 0 ? Random(0x700) : kTypes[Random(kTypes.size())];
            values.emplace_back(type, Random(2) == 0 ? RandomBytes(10) : StandardValue(type));
        }
        const CK_SESSION_HANDLE at = Random(8) == 0 ? anyHandle() : session;
        std::vector<CK_ATTRIBUTE> wanted = TemplateOf(values);
        std::array<CK_OBJECT_HANDLE, 16> found{};
        CK_ULONG count = 0;
        switch (Random(5)) {
        case 0:
            Driver().FindObjectsInit(at, wanted.data(), wanted.size());
            break;
        case 1:
            Driver().FindObjects(at, found.data(), Random(found.size()), &count);
            ASSERT_LE(count, found.size());
            break;
        case 2:
            Driver().FindObjectsFinal(at);
            break;
        case 3:
            Driver().GetAttributeValue(at, anyHandle(), wanted.data(), wanted.size());
            break;
        default:
            for (CK_ATTRIBUTE& attribute : wanted)
                attribute = {attribute.type, nullptr, Random(2) == 0 ? 0 : Random(~std::size_t{0})};
            if (Random(2) == 0)
                Driver().FindObjectsInit(at, wanted.data(), wanted.size());
            else
                Driver().GetAttributeValue(at, anyHandle(), wanted.data(), wanted.size());
        }
    }
    EXPECT_EQ(ListCertificates().size(), 3U);
    EXPECT_TRUE(Sign(CKM_SHA256_RSA_PKCS, FindKey("00"), "still works"));
}
