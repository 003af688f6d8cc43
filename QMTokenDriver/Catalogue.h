#pragma once

#include "Offered.h"
#include "Token.h"

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace tokendriver {

/// A certificate in the list, with the id by which the host tells it from all others.
struct ListedCertificate {
    Token* token;
    CK_OBJECT_HANDLE object; ///< the module's, of the token's present visit
    std::shared_ptr<const Certificate> certificate;
    std::string idText;
};

/// All tokens that are plugged in, and the certificates on them in the order in which a person would want
/// them.
class Catalogue {
public:
    explicit Catalogue(const std::vector<Backend>& modules) : modules_(modules) {}

    bool IsRead() const { return isRead_; }

    /// Looks at all tokens anew and reads their certificates. Throws Pkcs11Error when none can be read:
    /// CKR_DEVICE_REMOVED when none is there any more.
    void Read();

    /// The tokens that are used: those that hold a certificate to offer or, when none does, the first that
    /// can sign. As of the last reading.
    const std::vector<Token*>& Tokens() const { return used_; }

    const std::vector<ListedCertificate>& Certificates() const { return listed_; }

    /// A token that is left out, since another module before shows it too: that module. Null for others.
    const Backend* ShownBy(const SeenToken& place) const;

    /// The certificate with this text; null when there is none.
    const ListedCertificate* Find(const std::string& idText) const;

private:
    Token* Recognise(const SeenToken& seen, const std::vector<Token*>& present);
    std::optional<PluggedToken> FindLost(Token& lost);
    std::vector<Token*> LookAround();
    bool IsThereAlready(const Token& token, const std::vector<Token*>& present);
    void List(const std::vector<Token*>& present);
    std::string IdTextOf(const ListedCertificate& listed);

    const std::vector<Backend>& modules_;
    bool isRead_ = false;
    std::vector<std::unique_ptr<Token>> tokens_; ///< all that were ever there
    std::vector<Token*> used_;
    std::vector<std::pair<const Token*, const Token*>> twins_; ///< left out, and what is there already
    std::vector<ListedCertificate> listed_;

    // An id's text, once given, belongs to that certificate on that token as long as the process lives.
    std::map<std::tuple<const Token*, Bytes, Bytes>, std::string> idTexts_;
    std::map<Bytes, unsigned> timesGiven_; ///< by raw id
};

} // namespace tokendriver
