#include "Catalogue.h"

#include "Ckr.h"
#include "TokenLog.h"

#include <algorithm>
#include <ctime>
#include <iterator>

namespace tokendriver {

namespace {

/// Lines of the log for one list: a token may hold thousands of certificates.
constexpr std::size_t kMaxLinesOfAList = 20;

/// Why the list is as it is.
class ListLog {
public:
    ListLog() = default;
    ~ListLog() {
        if (lines_ > kMaxLinesOfAList)
            WriteTokenLog("list: and " + std::to_string(lines_ - kMaxLinesOfAList) + " lines more");
    }
    ListLog(const ListLog&) = delete;
    ListLog& operator=(const ListLog&) = delete;

    void Add(const std::string& line) {
        if (++lines_ <= kMaxLinesOfAList)
            WriteTokenLog("list: " + line);
    }

private:
    std::size_t lines_ = 0;
};

struct Judged {
    ListedCertificate listed;
    Offer offer;
};

struct OfToken {
    Token* token;
    std::vector<Judged> certificates;

    bool HasOffer() const {
        return std::any_of(certificates.begin(), certificates.end(),
                           [](const Judged& one) { return one.offer.IsOffered(); });
    }
};

/// A token's certificates without those that are left out.
OfToken Judge(Token& token, std::time_t now, ListLog& log) {
    OfToken judged{&token, {}};
    const std::string pinObjection = PinObjection(token.Seen().tokenInfo.flags);
    const std::vector<PrivateKey>* keys = nullptr; // where they show, and can be read
    if (token.IsLoggedIn())
        AnswerOf([&] {
            keys = &token.ReadKeys();
            return CKR_OK;
        });
    for (const FoundCertificate& found : token.Certificates()) {
        Offer offer = found.certificate->Offered(now);
        if (keys != nullptr && offer.IsOffered())
            offer.LeaveOut(KeyObjection(*keys, *found.certificate));
        offer.PutBehind(pinObjection);
        if (offer.standing == Standing::LeftOut)
            log.Add("left out: id " + HexText(found.certificate->Id()) + " on the token " + token.Name() +
                    ", " + offer.ReasonsText());
        else
            judged.certificates.push_back({{&token, found.object, found.certificate, {}}, std::move(offer)});
    }
    if (!judged.HasOffer())
        log.Add("no certificate that can sign on the token " + token.Name());
    return judged;
}

} // namespace

void Catalogue::Read() {
    const std::vector<Token*> present = LookAround();
    List(present);
    isRead_ = true;
}

/// The tokens that are there, hardware first. Those that are there no more are away from now on, before any
/// new session is opened: so no session of theirs can be taken for a new one.
std::vector<Token*> Catalogue::LookAround() {
    const std::vector<SeenToken> seen = TokensThatCanSign(ScanTokens(modules_));
    for (const std::unique_ptr<Token>& token : tokens_) {
        const bool isThere = std::any_of(seen.begin(), seen.end(), [&token](const SeenToken& place) {
            return token->IsAt(place) && token->Seen().identity == place.identity;
        });
        if (!isThere && token->IsHere())
            token->GoneWith(CKR_DEVICE_REMOVED);
    }
    twins_.clear();
    std::vector<Token*> present;
    CK_RV failure = tokens_.empty() ? CKR_TOKEN_NOT_PRESENT : CKR_DEVICE_REMOVED;
    for (const SeenToken& place : seen) {
        const CK_RV answer = AnswerOf([&] {
            Token* token = Recognise(place, present);
            if (!IsThereAlready(*token, present))
                present.push_back(token);
            return CKR_OK;
        });
        if (answer == CKR_OK)
            continue;
        failure = answer;
        WriteTokenLog("list: the token \"" + place.identity.label +
                      "\" cannot be read: " + DescribeAnswer(answer));
    }
    if (!present.empty())
        return present;
    used_.clear();
    listed_.clear();
    WriteTokenLog("list: empty, there is no token that can sign and be read");
    throw Pkcs11Error(failure);
}

/// Whether a module before shows this token too. It is left out then: it has one PIN, which is asked for
/// once.
bool Catalogue::IsThereAlready(const Token& token, const std::vector<Token*>& present) {
    const auto found = std::find_if(present.begin(), present.end(),
                                    [&token](const Token* other) { return token.IsAlso(*other); });
    if (found == present.end())
        return false;
    twins_.emplace_back(&token, *found);
    WriteTokenLog("list: the token " + token.Name() + " of the module " + token.Seen().backend->name +
                  " is left out: the module " + (*found)->Seen().backend->name + " shows it too");
    return true;
}

const Backend* Catalogue::ShownBy(const SeenToken& place) const {
    const auto found = std::find_if(twins_.begin(), twins_.end(),
                                    [&place](const auto& twins) { return twins.first->IsAt(place); });
    return found == twins_.end() ? nullptr : found->second->Seen().backend;
}

/// The token that is in this place now. A session that still answers proves that it was there all the time;
/// else it is known by its certificates. Throws Pkcs11Error.
Token* Catalogue::Recognise(const SeenToken& seen, const std::vector<Token*>& present) {
    for (const std::unique_ptr<Token>& token : tokens_) {
        if (!token->IsHere() || !token->IsAt(seen))
            continue;
        const CK_RV answer = AnswerOf([&] {
            token->StillAt(seen);
            return CKR_OK;
        });
        if (answer == CKR_OK)
            return token.get();
        if (!IsGone(answer))
            throw Pkcs11Error(answer);
        token->GoneWith(answer);
    }
    PluggedToken plugged(seen);
    for (const std::unique_ptr<Token>& token : tokens_) {
        const bool isTaken = std::find(present.begin(), present.end(), token.get()) != present.end();
        if (isTaken || token->IsHere() || !(token->Seen().identity == seen.identity))
            continue;
        if (token->Knows(plugged.certificates)) {
            token->FoundIn(std::move(plugged));
            return token.get();
        }
        token->ForgetPin("another token of the same name and number is there");
    }
    return tokens_
        .emplace_back(
            std::make_unique<Token>(std::move(plugged), [this](Token& lost) { return FindLost(lost); }))
        .get();
}

/// First where it was, then elsewhere.
std::optional<PluggedToken> Catalogue::FindLost(Token& lost) {
    std::vector<SeenToken> seen = TokensThatCanSign(ScanTokens(modules_));
    std::erase_if(seen,
                  [&lost](const SeenToken& token) { return !(token.identity == lost.Seen().identity); });
    std::stable_partition(seen.begin(), seen.end(),
                          [&lost](const SeenToken& token) { return lost.IsAt(token); });
    for (const SeenToken& place : seen) {
        const bool isAnothers =
            std::any_of(tokens_.begin(), tokens_.end(), [&](const std::unique_ptr<Token>& token) {
                return token.get() != &lost && token->IsHere() && token->IsAt(place);
            });
        std::optional<PluggedToken> plugged;
        if (isAnothers || AnswerOf([&] {
                              plugged.emplace(place);
                              return CKR_OK;
                          }) != CKR_OK)
            continue;
        if (lost.Knows(plugged->certificates))
            return plugged;
        lost.ForgetPin("another token of the same name and number is there");
    }
    return std::nullopt;
}

void Catalogue::List(const std::vector<Token*>& present) {
    ListLog log;
    const std::time_t now = std::time(nullptr);
    std::vector<OfToken> tokens;
    tokens.reserve(present.size());
    for (Token* token : present)
        tokens.push_back(Judge(*token, now, log));
    if (std::any_of(tokens.begin(), tokens.end(), [](const OfToken& token) { return token.HasOffer(); }))
        std::erase_if(tokens, [](const OfToken& token) { return !token.HasOffer(); });
    else
        tokens.erase(tokens.begin() + 1, tokens.end());

    used_.clear();
    std::vector<Judged> all;
    for (OfToken& token : tokens) {
        used_.push_back(token.token);
        std::move(token.certificates.begin(), token.certificates.end(), std::back_inserter(all));
    }
    std::stable_sort(all.begin(), all.end(), [](const Judged& one, const Judged& other) {
        return one.offer.ComesBefore(other.offer);
    });
    listed_.clear();
    for (Judged& one : all) {
        one.listed.idText = IdTextOf(one.listed);
        listed_.push_back(std::move(one.listed));
    }
}

std::string Catalogue::IdTextOf(const ListedCertificate& listed) {
    const Bytes& id = listed.certificate->Id();
    const auto [place, isNew] =
        idTexts_.try_emplace({listed.token, id, listed.certificate->Der()}, HexText(id));
    if (isNew)
        if (const unsigned times = ++timesGiven_[id]; times > 1)
            place->second += "-" + std::to_string(times);
    return place->second;
}

const ListedCertificate* Catalogue::Find(const std::string& idText) const {
    const auto found =
        std::find_if(listed_.begin(), listed_.end(),
                     [&idText](const ListedCertificate& listed) { return listed.idText == idText; });
    return found == listed_.end() ? nullptr : &*found;
}

} // namespace tokendriver
