#include "QMX509Decoder.h"

#include "QMHostShared.h"
#include "ck/CkCert.h"
#include "ck/CkDateTime.h"
#include "ck/CkJsonObject.h"

#include <algorithm>
#include <iterator>
#include <memory>
#include <sstream>
#include <string_view>
#include <vector>

namespace {

// RFC 5280 section 4.2.1.3: every use but keyCertSign (0x04) and cRLSign (0x02). A key that has none of these
// issues certificates, or says nothing of its use, and is not offered for signing.
constexpr std::uint32_t kEndEntityUsages = 0xF9;

/// A text by which somebody is named has up to 64 characters, an e-mail address up to 255 (RFC 5280 appendix
/// A.1). What is longer is told by its length: a part of it might be somebody else's name.
constexpr std::size_t kMaxShownCharacters = 255;

/// Longer words would reach out of the window, were they in capitals.
constexpr std::size_t kMaxWord = 24;

/// From one UTF-8 character to another, both included.
struct Range {
    std::string_view first, last;
};

/// Characters that take room and show nothing, or turn the direction of others: with these a name could push
/// the rest of its card away, or draw another one.
constexpr Range kBlanks[] = {
    {"\x01", " "},        {"\x7F", "\u00A0"},   {"\u00AD", "\u00AD"}, {"\u034F", "\u034F"},
    {"\u061C", "\u061C"}, {"\u115F", "\u1160"}, {"\u1680", "\u1680"}, {"\u17B4", "\u17B5"},
    {"\u180B", "\u180F"}, {"\u2000", "\u200B"}, {"\u200E", "\u200F"}, {"\u2028", "\u202F"},
    {"\u205F", "\u206F"}, {"\u2800", "\u2800"}, {"\u3000", "\u3000"}, {"\u3164", "\u3164"},
    {"\uFEFF", "\uFEFF"}, {"\uFFA0", "\uFFA0"}, {"\uFFF9", "\uFFFC"}, {"\U000E0000", "\U000E0FFF"},
};

/// Letters of scripts that are written from right to left.
constexpr Range kRightToLeft[] = {
    {"\u0590", "\u08FF"},         {"\uFB1D", "\uFDFF"},         {"\uFE70", "\uFEFC"},
    {"\U00010800", "\U00010FFF"}, {"\U0001E800", "\U0001EFFF"},
};

template <std::size_t N>
bool IsIn(const Range (&ranges)[N], std::string_view character) {
    return std::any_of(std::begin(ranges), std::end(ranges), [&](const Range& range) {
        return range.first <= character && character <= range.last;
    });
}

std::string_view Escaped(std::string_view character) {
    if (character == "<")
        return "&lt;";
    if (character == ">")
        return "&gt;";
    if (character == "&")
        return "&amp;";
    return character == "\"" ? "&quot;" : character;
}

/// The characters of a valid UTF-8 text.
std::vector<std::string_view> Characters(std::string_view text) {
    std::vector<std::string_view> characters;
    while (!text.empty()) {
        const auto lead = static_cast<unsigned char>(text.front());
        characters.push_back(text.substr(0, lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4));
        text.remove_prefix(characters.back().size());
    }
    return characters;
}

/// What a certificate says, as a text that can be nothing else: no blank follows another.
std::string Harmless(const std::string& text) {
    const std::vector<std::string_view> characters = Characters(text);
    if (characters.size() > kMaxShownCharacters)
        return "[" + std::to_string(characters.size()) + " characters]";
    std::string harmless;
    for (const std::string_view character : characters) {
        if (!IsIn(kBlanks, character))
            harmless += character;
        else if (!harmless.empty() && harmless.back() != ' ')
            harmless += ' ';
    }
    if (harmless.ends_with(' '))
        harmless.pop_back();
    return harmless;
}

struct Word {
    std::string html;
    std::size_t length = 0; ///< in characters
};

/// The words of a harmless text, long ones in several parts.
std::vector<Word> Words(const std::string& harmless) {
    std::vector<Word> words;
    bool isNew = true;
    for (const std::string_view character : Characters(harmless)) {
        const bool isBlank = character == " ";
        if (!isBlank && (isNew || words.back().length == kMaxWord))
            words.emplace_back();
        isNew = isBlank;
        if (isBlank)
            continue;
        words.back().html += Escaped(character);
        ++words.back().length;
    }
    return words;
}

/// A harmless text in HTML. The list draws word by word from left to right; so where some are written from
/// right to left, those of a line are made one, for the text's own direction to count.
std::string Drawn(const std::string& text) {
    const std::string harmless = Harmless(text);
    const std::vector<std::string_view> characters = Characters(harmless);
    const bool turns = std::any_of(characters.begin(), characters.end(),
                                   [](std::string_view character) { return IsIn(kRightToLeft, character); });
    std::string drawn;
    std::size_t line = 0; // characters in it
    for (const Word& word : Words(harmless)) {
        const bool fits = line + 1 + word.length <= kMaxWord;
        if (!drawn.empty())
            drawn += !turns ? " " : fits ? "&nbsp;" : "<br>";
        line = (fits ? line + 1 : 0) + word.length;
        drawn += word.html;
    }
    return drawn;
}

std::string AsItIs(const std::string& text) { return text; }

bool IsOver(const CkCert& cert) {
    CkDateTime validTo;
    validTo.SetFromRfc822(cert.validToStr());
    return validTo.OlderThan(1, "seconds");
}

/// The card of a certificate, with what the certificate says made of it by `text`.
std::string Card(const CkCert& cert, std::string (*text)(const std::string&)) {
    const char* validity = IsOver(cert) ? "<span style='font-size:80%;color:red'><b>Expired: "
                                        : "<span style='font-size:80%;'><b>Valid upto: ";
    std::ostringstream card;
    card << "<div style='font-family:verdana;'><span style='color:blue;'><b>" << text(cert.subjectCN())
         << "</b>&nbsp;(" << text(cert.rfc822Name()) << ")</span><br>" << text(cert.subjectO()) << " <br>"
         << validity << cert.validToStr() << "</b></span></div>"
         << "<hr>";
    return card.str();
}

/// The card as it is said.
std::string Spoken(const CkCert& cert) {
    std::string spoken;
    for (const std::string& text : {cert.subjectCN(), cert.rfc822Name(), cert.subjectO()}) {
        if (const std::string harmless = Harmless(text); !harmless.empty())
            spoken += harmless + ", ";
    }
    return spoken + (IsOver(cert) ? "Expired: " : "Valid upto: ") + cert.validToStr();
}

} // namespace

CkJsonObject* QMX509Decoder::GetX509CertDetails(const char* der, std::size_t length) {
    auto details = std::make_unique<CkJsonObject>();
    CkCert cert;
    if (!cert.LoadFromBinary2(der, length)) {
        LogTextToFile(cert.lastErrorText(), DEBUG);
        details->AppendString("ErrMsg", cert.lastErrorText());
        return details.release();
    }
    LogTextToFile("GetX509CertDetails - Load Certificate Success", DEBUG);

    CkDateTime validFrom;
    validFrom.SetFromRfc822(cert.validFromStr());
    details->AppendString("SelCertSubject", cert.subjectDN());
    details->AppendString("CertThumbPrint", cert.sha1Thumbprint());
    details->AppendString("eMail", cert.rfc822Name());
    details->AppendString("ValidFrom", validFrom.getAsTimestamp(false));
    details->AppendString("ExpDate", cert.validToStr());

    const std::unique_ptr<CkPublicKey> publicKey = cert.ExportPublicKey();
    if (!cert.get_LastMethodSuccess()) {
        LogTextToFile(cert.lastErrorText(), DEBUG);
        details->AppendString("ErrMsg", cert.lastErrorText());
        return details.release();
    }
    details->AppendString("PublicKey", publicKey->getEncoded(true, "Base64"));
    details->AppendString("Cert", cert.getEncoded());
    return details.release();
}

std::string QMX509Decoder::GetX509CertHTML(const char* der, std::size_t length) {
    CkCert cert;
    if (!cert.LoadFromBinary2(der, length)) {
        LogTextToFile(cert.lastErrorText(), DEBUG);
        return "QMHostError: " + cert.lastErrorText();
    }
    LogTextToFile("GetX509CertHTML - Load Certificate Success", DEBUG);

    const std::uint32_t keyUsages = cert.get_IntendedKeyUsage();
    LogTextToFile("Key Usages: " + std::to_string(keyUsages), DEBUG);
    if ((keyUsages & kEndEntityUsages) == 0)
        return "ChainCert";
    return Card(cert, AsItIs);
}

ShownCard QMX509Decoder::GetX509CertShown(const char* der, std::size_t length) {
    CkCert cert;
    if (!cert.LoadFromBinary2(der, length)) {
        const std::string error = "QMHostError: " + cert.lastErrorText();
        return {Drawn(error), Harmless(error)};
    }
    return {Card(cert, Drawn), Spoken(cert)};
}
