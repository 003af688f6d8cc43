// Cards as they are drawn.

#include "QMX509Decoder.h"
#include "support/Certificates.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string_view>

namespace {

using testing::HasSubstr;
using testing::Not;

std::string CardOf(const std::string& der) { return QMX509Decoder().GetX509CertHTML(der.data(), der.size()); }

std::string ShownOf(const std::string& der) {
    return QMX509Decoder().GetX509CertShown(der.data(), der.size()).drawn;
}

/// How a common name is drawn: what stands in the place of its card.
std::string Shown(const std::string& name) {
    const std::string shown =
        ShownOf(CertificateOrder{.subject = {{"CN", name}}, .extensions = ForSigning()}.der());
    const std::string_view head = "<div style='font-family:verdana;'><span style='color:blue;'><b>";
    EXPECT_TRUE(shown.starts_with(head)) << shown;
    const std::size_t end =
        shown.find("</b>&nbsp;()</span><br> <br><span style='font-size:80%;'><b>Valid upto: ");
    EXPECT_NE(end, std::string::npos) << shown;
    return shown.substr(head.size(), end - head.size());
}

TEST(ShownCard, ACardWithoutMarkupInItsNamesIsShownAsItIs) {
    for (const CertificateOrder& certificate :
         {CertificateOrder{.extensions = ForSigning()},
          CertificateOrder{.notAfter = "231231235959Z", .extensions = ForSigning()},
          CertificateOrder{.subject = {{"CN", "Jürgen Müller"}, {"O", "आशा"}},
          .extensions = ForSigning("j@example.com")}}) {
        const std::string der = certificate.der();
        EXPECT_EQ(ShownOf(der), CardOf(der));
    }
}

TEST(ShownCard, MarkupInANameIsText) {
    EXPECT_EQ(Shown("<img src=x>"), "&lt;img src=x&gt;");
    EXPECT_EQ(Shown("a &amp; b &lt;"), "a &amp;amp; b &amp;lt;");
    EXPECT_EQ(Shown("'\""), "'&quot;");
    EXPECT_EQ(ShownOf("x"), CardOf("x"));
}

TEST(ShownCard, ACardInsideOfANameIsText) {
    const std::string card = CardOf(CertificateOrder{.extensions = ForSigning()}.der());
    const std::string name = card.substr(63, 60); // as much as fits a name
    const std::string shown = Shown(name);
    EXPECT_EQ(shown.find('<'), std::string::npos) << shown;
}

TEST(ShownCard, ManyBlanksAreOne) {
    EXPECT_EQ(Shown("Asha" + std::string(50, ' ') + "Rao"), "Asha Rao");
    EXPECT_EQ(Shown("  Asha  "), "Asha");
    EXPECT_EQ(Shown("Asha\u00a0\u2003\u3000\u200b\n\tRao"), "Asha Rao");
    EXPECT_EQ(Shown("\u2800\u3164\uffa0"), "");
}

TEST(ShownCard, MarksThatTurnTheDirectionAreLeftOut) {
    EXPECT_EQ(Shown("\u202eoaR ahsA\u202c\u2066\u2069\u200f"), "oaR ahsA");
}

TEST(ShownCard, LettersOfAllScriptsAreAsTheyAre) {
    for (const char* name : {"आशा राव", "க்ஷ\u200dமா", "عائشة", "李", "😀", "Zoë"})
        EXPECT_EQ(Shown(name), name);
}

TEST(ShownCard, WordsFromRightToLeftAreOneWhereverOneLineHoldsThem) {
    EXPECT_EQ(Shown("عائشة خان"), "عائشة&nbsp;خان");
    EXPECT_EQ(Shown("آفتاب احمد Khan & Sons"), "آفتاب&nbsp;احمد&nbsp;Khan&nbsp;&amp;&nbsp;Sons");
    EXPECT_EQ(Shown("محمد عبد الرحمن بن عبد العزيز"), "محمد&nbsp;عبد&nbsp;الرحمن&nbsp;بن&nbsp;عبد<br>العزيز");
    EXPECT_EQ(Shown("\u202eعائشة\u2067 <b>"), "عائشة&nbsp;&lt;b&gt;");
}

TEST(ShownCard, IsReadOutAsAPersonWouldSayIt) {
    const auto spokenOf = [](const CertificateOrder& certificate) {
        const std::string der = certificate.der();
        const std::string spoken = QMX509Decoder().GetX509CertShown(der.data(), der.size()).spoken;
        return spoken.substr(0, spoken.find(':') + 1);
    };
    EXPECT_EQ(spokenOf({.extensions = ForSigning("asha@example.in")}),
              "Asha Rao, asha@example.in, Example, Valid upto:");
    EXPECT_EQ(spokenOf({.notAfter = "231231235959Z", .extensions = ForSigning()}),
              "Asha Rao, Example, Expired:");
    EXPECT_EQ(spokenOf({.subject = {{"CN", "<b>  \u202eعائشة\nخان"}}, .extensions = ForSigning()}),
              "<b> عائشة خان, Valid upto:");
    EXPECT_EQ(spokenOf({.subject = {{"CN", std::string(40, 'w')}}, .extensions = ForSigning()}),
              std::string(40, 'w') + ", Valid upto:");
    EXPECT_EQ(QMX509Decoder().GetX509CertShown("x", 1).spoken, CardOf("x"));
}

TEST(ShownCard, NoPartOfALongNameIsShown) {
    const std::string organisation = "Bank of Somewhere " + std::string(46, 'x');
    const std::string shown =
        ShownOf(CertificateOrder{.subject = {{"O", organisation}}, .extensions = ForSigning()}.der());
    EXPECT_THAT(shown, HasSubstr("Bank of Somewhere " + std::string(24, 'x') + " " + std::string(22, 'x')));
    const std::string email = std::string(250, 'e') + "@a.example";
    const std::string longer = ShownOf(CertificateOrder{.extensions = ForSigning(email)}.der());
    EXPECT_THAT(longer, HasSubstr("&nbsp;([260 characters])</span>"));
    EXPECT_THAT(longer, Not(HasSubstr("eee")));
}

} // namespace
