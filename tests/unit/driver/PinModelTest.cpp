#include "DriverFixture.h"

#include "Driver.h"

#include <dlfcn.h>

#include <algorithm>
#include <array>
#include <climits>
#include <map>
#include <stdexcept>

// Every order of some events with three tokens: pulled and put back, exchanged for another of the same name
// and number, signed with and the PIN typed right or wrong, the host started anew. No PIN reaches a token
// that it was not typed for, and none is tried again that was refused.

namespace {

using namespace tokendriver;

constexpr std::size_t kTokens = 3;

enum class Deed {
    PullOrPutBack,
    SignWithRightPin,
    SignWithWrongPin,
    Exchange,
    ExchangeUnnoticed, ///< the module has the old token's sessions go on
    StartAnew,
    ReadList
};

bool IsOfAToken(Deed deed) { return deed < Deed::StartAnew; }

struct Event {
    Deed deed;
    std::size_t token; ///< of no meaning for some
};

struct Fake {
    explicit Fake(const std::string& name)
        : library(OpenLibrary(std::string(QM_DRIVER_FAKES) + "/" + name + ".so")) {
        state = reinterpret_cast<FakeTokenState* (*)()>(dlsym(library.get(), "NewFakeToken"))();
        reinterpret_cast<CK_C_GetFunctionList>(dlsym(library.get(), "C_GetFunctionList"))(&functions);
    }
    Library library;
    FakeTokenState* state;
    CK_FUNCTION_LIST* functions = nullptr;
};

/// The user's desk: the tokens, their doubles, and the host with its driver.
class Desk {
public:
    Desk() {
        for (std::size_t i = 0; i < kTokens; ++i)
            for (FakeTokenState* state : {tokens[i].state, doubles[i].state}) {
                state->label = "Token " + std::to_string(i);
                state->pin = "right " + std::to_string(i);
                state->pinTries = UINT_MAX; // no lock hides a PIN that should not have come
            }
        for (const auto* fakes : {&tokens, &doubles})
            for (const Fake& fake : *fakes)
                modules.push_back({"fake", "", fake.functions});
        for (std::size_t i = 0; i < kTokens; ++i) {
            SetPresent([i](std::size_t other) { return other == i; });
            StartAnew();
            certificates[i] = listed.begin()->second;
        }
    }

    void Begin() {
        SetPresent([](std::size_t) { return true; });
        for (const auto* fakes : {&tokens, &doubles})
            for (const Fake& fake : *fakes) {
                fake.state->loggedIn = false;
                fake.state->pinsTried.clear();
                fake.state->exchanged = false;
            }
        typed.clear();
        StartAnew();
    }

    void Do(const Event& event) {
        switch (event.deed) {
        case Deed::PullOrPutBack:
            return Toggle(*tokens[event.token].state);
        case Deed::Exchange:
            if (tokens[event.token].state->present != doubles[event.token].state->present)
                Toggle(*tokens[event.token].state);
            return Toggle(*doubles[event.token].state);
        case Deed::ExchangeUnnoticed:
            return tokens[event.token].state->Exchange();
        case Deed::StartAnew:
            return StartAnew();
        case Deed::ReadList:
            return ReadList();
        case Deed::SignWithRightPin:
        case Deed::SignWithWrongPin:
            return Sign(event.token, event.deed == Deed::SignWithRightPin);
        }
    }

    /// What is wrong with what the tokens were given; empty: nothing.
    std::string Wrong() const {
        for (std::size_t i = 0; i < kTokens; ++i) {
            if (!doubles[i].state->pinsTried.empty() || !tokens[i].state->pinsTriedAtTheOther.empty())
                return "the double of token " + std::to_string(i) + " was given a PIN";
            const std::vector<std::string>& tried = tokens[i].state->pinsTried;
            for (const std::string& pin : tried) {
                const auto known = typed.find(pin);
                if (known == typed.end() || known->second != i)
                    return "token " + std::to_string(i) + " was given '" + pin + "'";
                if (pin != tokens[i].state->pin && std::count(tried.begin(), tried.end(), pin) > 1)
                    return "token " + std::to_string(i) + " was given '" + pin + "' twice";
            }
        }
        return {};
    }

    unsigned signedWith = 0; ///< keys found, of all sequences

private:
    template <class IsThere>
    void SetPresent(IsThere isThere) {
        for (std::size_t i = 0; i < kTokens; ++i) {
            tokens[i].state->present = isThere(i);
            doubles[i].state->present = false;
        }
    }

    static void Toggle(FakeTokenState& token) {
        if (token.present)
            token.Pull();
        else
            token.PutBack();
    }

    /// A new process: it reads the list.
    void StartAnew() {
        isLoggedIn = false;
        driver.reset();
        session = 0;
        driver = std::make_unique<Driver>(
            modules, [this](const SeenToken& token, KeptPin& pin) { return Ask(token, pin); });
        CK_SLOT_ID slot = 0;
        CK_ULONG count = 1;
        if (driver->GetSlotList(&slot, count) == CKR_OK && count == 1)
            session = driver->OpenSession(slot);
        ReadList();
    }

    void ReadList() {
        listed.clear();
        if (session == 0)
            return;
        CK_OBJECT_CLASS certificate = CKO_CERTIFICATE;
        const CK_ATTRIBUTE wanted{CKA_CLASS, &certificate, sizeof certificate};
        Session& host = driver->SessionOf(session);
        if (AnswerOf([&] { return host.FindObjectsInit({&wanted, 1}); }) != CKR_OK)
            return;
        CK_ULONG count = 0;
        for (CK_OBJECT_HANDLE object = 0; host.FindObjects({&object, 1}, count) == CKR_OK && count == 1;) {
            std::string id(32, '\0'), der(4096, '\0');
            std::array values = {CK_ATTRIBUTE{CKA_ID, id.data(), id.size()},
                                 CK_ATTRIBUTE{CKA_VALUE, der.data(), der.size()}};
            host.GetAttributeValue(object, values.data(), values.size());
            listed[id.substr(0, values[0].ulValueLen)] = der.substr(0, values[1].ulValueLen);
        }
        host.FindObjectsFinal();
    }

    /// The user chooses this token's certificate, if it is in the list, and types when asked.
    void Sign(std::size_t token, bool isRight) {
        const auto row = std::find_if(listed.begin(), listed.end(),
                                      [&](const auto& one) { return one.second == certificates[token]; });
        if (row == listed.end())
            return;
        wantedToken = token;
        typesRight = isRight;
        Session& host = driver->SessionOf(session);
        if (!isLoggedIn) {
            std::string pin = Type(token);
            const auto login = [&] {
                return host.Login(CKU_USER, {reinterpret_cast<CK_UTF8CHAR*>(pin.data()), pin.size()});
            };
            isLoggedIn = AnswerOf(login) == CKR_OK;
        }
        if (!isLoggedIn)
            return;
        CK_OBJECT_CLASS key = CKO_PRIVATE_KEY;
        std::string id = row->first;
        const std::array wanted = {CK_ATTRIBUTE{CKA_CLASS, &key, sizeof key},
                                   CK_ATTRIBUTE{CKA_ID, id.data(), id.size() + 1}};
        const auto search = [&] { return host.FindObjectsInit({wanted.data(), wanted.size()}); };
        if (AnswerOf(search) != CKR_OK)
            return;
        CK_OBJECT_HANDLE found = 0;
        CK_ULONG count = 0;
        host.FindObjects({&found, 1}, count);
        host.FindObjectsFinal();
        CK_MECHANISM mechanism{CKM_SHA256_RSA_PKCS, nullptr, 0};
        const auto begin = [&] { return host.SignInit(mechanism, found); };
        if (count == 1 && AnswerOf(begin) == CKR_OK) {
            ++signedWith;
            CK_ULONG length = 0;
            host.Sign({}, nullptr, length);
        }
    }

    CK_RV Ask(const SeenToken& token, KeptPin& pin) {
        if (token.identity.label != "Token " + std::to_string(wantedToken))
            throw std::logic_error("asked for a token that is not wanted");
        const std::string text = Type(wantedToken);
        pin.Keep({reinterpret_cast<const CK_UTF8CHAR*>(text.data()), text.size()});
        return CKR_OK;
    }

    /// A wrong PIN is another one each time.
    std::string Type(std::size_t token) {
        std::string pin = tokens[token].state->pin;
        if (!typesRight)
            pin = "wrong " + std::to_string(typed.size()) + " for " + std::to_string(token);
        typed[pin] = token;
        return pin;
    }

    std::array<Fake, kTokens> tokens = {Fake("works"), Fake("is-hardware"), Fake("lacks-hash-mechanisms")};
    std::array<Fake, kTokens> doubles = {Fake("read-only-token"), Fake("lists-a-mechanism-it-refuses"),
                                         Fake("two-keys-with-one-id")};
    std::vector<Backend> modules;
    std::array<std::string, kTokens> certificates;
    std::unique_ptr<Driver> driver;
    CK_SESSION_HANDLE session = 0;
    std::map<std::string, std::string> listed; ///< certificates by id
    std::map<std::string, std::size_t> typed;  ///< PINs, and for which token
    std::size_t wantedToken = 0;
    bool typesRight = false;
    bool isLoggedIn = false; ///< as the host believes
};

bool IsSigning(const Event& event) {
    return event.deed == Deed::SignWithRightPin || event.deed == Deed::SignWithWrongPin;
}

class PinModelTest : public testing::Test {
protected:
    PinModelTest() { unsetenv("HOME"); } // no log: it would take most of the time

    /// All sequences of `events` that are `left` longer than `sequence`. The tokens are alike: so it is
    /// enough that they appear in their order. What comes after the last signature changes nothing.
    void TryAll(const std::vector<Event>& events, std::size_t left) {
        if (HasFailure())
            return;
        if (left == 0)
            return Try();
        const std::size_t seen = TokensIn(sequence);
        for (const Event& event : events) {
            const bool comesTooEarly = IsOfAToken(event.deed) && event.token > seen;
            if (comesTooEarly || (left == 1 && !IsSigning(event)))
                continue;
            sequence.push_back(event);
            TryAll(events, left - 1);
            sequence.pop_back();
        }
    }

    static std::size_t TokensIn(const std::vector<Event>& events) {
        std::size_t seen = 0;
        for (const Event& event : events)
            if (IsOfAToken(event.deed))
                seen = std::max(seen, event.token + 1);
        return seen;
    }

    void Try() {
        ++tried;
        desk.Begin();
        for (const Event& event : sequence)
            desk.Do(event);
        const std::string wrong = desk.Wrong();
        if (wrong.empty())
            return;
        std::string text;
        for (const Event& event : sequence)
            text += " " + std::to_string(static_cast<int>(event.deed)) + ":" + std::to_string(event.token);
        ADD_FAILURE() << wrong << " after" << text;
    }

    static std::vector<Event> Events(std::initializer_list<Deed> deeds) {
        std::vector<Event> events;
        for (const Deed deed : deeds)
            for (std::size_t token = 0; token < (IsOfAToken(deed) ? kTokens : 1); ++token)
                events.push_back({deed, token});
        return events;
    }

    Desk desk;
    std::vector<Event> sequence;
    unsigned tried = 0;
};

} // namespace

TEST_F(PinModelTest, InAllOrdersOfSixEvents_NoPinReachesAnotherTokenOrIsTriedTwice) {
    TryAll(Events({Deed::PullOrPutBack, Deed::SignWithRightPin, Deed::SignWithWrongPin}), 6);
    EXPECT_GT(tried, 30'000U);
    EXPECT_GT(desk.signedWith, tried / 2) << "hardly any signature: a test of nothing";
}

TEST_F(PinModelTest, InAllOrdersOfFiveEventsWithDoublesAndNewStarts_NoPinReachesADouble) {
    TryAll(Events({Deed::PullOrPutBack, Deed::SignWithRightPin, Deed::SignWithWrongPin, Deed::Exchange,
                   Deed::StartAnew}),
           5);
    EXPECT_GT(tried, 10'000U);
    EXPECT_GT(desk.signedWith, tried / 2) << "hardly any signature: a test of nothing";
}

TEST_F(PinModelTest, InAllOrdersOfFiveEventsWithListsReadAgainAndUnnoticedDoubles_NoPinReachesADouble) {
    TryAll(Events({Deed::PullOrPutBack, Deed::SignWithRightPin, Deed::SignWithWrongPin,
                   Deed::ExchangeUnnoticed, Deed::ReadList}),
           5);
    EXPECT_GT(tried, 10'000U);
    EXPECT_GT(desk.signedWith, tried / 2) << "hardly any signature: a test of nothing";
}
