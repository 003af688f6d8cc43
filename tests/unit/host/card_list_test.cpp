#include "CardList.h"
#include "QMX509Decoder.h"
#include "TestCertificate.h"

#include <gtest/gtest.h>

namespace {

const std::string kHead = "<div style='font-family:verdana;'><span style='color:blue;'><b>";
const std::string kValidity = " <br><span style='font-size:80%;'><b>Valid upto: Fri, 31 Dec 2049 23:59:59 GMT"
                              "</b></span></div><hr>";

std::string Card(const std::string& name, const std::string& organisation = "O",
                 const std::string& validity = kValidity) {
    return kHead + name + "</b>&nbsp;(e@example.com)</span><br>" + organisation + validity;
}

std::string Shown(const std::string& row) {
    return std::string(ShownMarkup(wxString::FromUTF8(row)).utf8_str());
}

TEST(ShownMarkup, ACardIsShownAsItIs) {
    EXPECT_EQ(Shown(Card("Anna Müller & Söhne")), Card("Anna Müller & Söhne"));
    const std::string expired = " <br><span style='font-size:80%;color:red'><b>Expired: Tue, 15 Nov 2022"
                                "</b></span></div><hr>";
    EXPECT_EQ(Shown(Card("N", "O", expired)), Card("N", "O", expired));
}

TEST(ShownMarkup, WhatTheDecoderMakesIsShownAsItIs) {
    const std::string der = TestCertificate{}.der();
    const std::string card = QMX509Decoder().GetX509CertHTML(der.data(), der.size());
    EXPECT_EQ(Shown(card), card);
}

TEST(ShownMarkup, TheLoadingRowIsShownAsItIs) { EXPECT_EQ(Shown(kLoadingRow), kLoadingRow); }

TEST(ShownMarkup, TheTagsOfACertificateAreText) {
    EXPECT_EQ(Shown(Card("<img src=file:///etc/passwd>", "<a href='http://x'>x</a>")),
              Card("&lt;img src=file:///etc/passwd>", "&lt;a href='http://x'>x&lt;/a>"));
    EXPECT_EQ(Shown("QMHostError: <script>"), "QMHostError: &lt;script>");
}

TEST(ShownMarkup, OwnTagsInACertificateDoNotNest) {
    std::string name;
    for (int i = 0; i < 1000; ++i)
        name += "<b>";
    const std::string shown = Shown(Card(name));
    std::size_t bold = 0;
    for (std::size_t at = shown.find("<b>"); at != std::string::npos; at = shown.find("<b>", at + 1))
        ++bold;
    EXPECT_LE(bold, 2U);
}

TEST(ShownMarkup, ACertificateThatEndsItsCardStaysInItsRow) {
    const std::string shown = Shown(Card("</b>&nbsp;()</span><br>" + kValidity + Card("Somebody Else")));
    EXPECT_EQ(shown.find("<hr>"), shown.rfind("<hr>"));
    EXPECT_EQ(shown.find("<div"), shown.rfind("<div"));
}

TEST(ShownMarkup, LongNamesAreCutAndTheRestOfTheCardIsThere) {
    const std::string name = std::string(200, 'W') + "…";
    const std::string organisation = std::string(200, 'O') + "…";
    // The blank behind the organisation is cut with it.
    EXPECT_EQ(Shown(Card(std::string(1'000'000, 'W'), std::string(500, 'O'))),
              Card(name, organisation, kValidity.substr(1)));
}

} // namespace
