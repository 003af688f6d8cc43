// Inputs that were valid before a few of their bytes were changed: nothing crashes (the sanitizers watch),
// and what is still taken is taken exactly.

#include "ck/CkAsn.h"
#include "ck/CkCert.h"
#include "ck/CkJsonObject.h"
#include "ck/CkXml.h"

#include "OddCertificates.h"
#include "support/Bytes.h"
#include "support/Certificates.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <random>

namespace {

constexpr unsigned kSeeds = 20'000;

std::string Mutated(std::string bytes, unsigned seed) {
    std::mt19937 random(seed);
    const auto below = [&](std::size_t limit) { return random() % std::max<std::size_t>(limit, 1); };
    for (std::size_t changes = 1 + below(4); changes > 0 && !bytes.empty(); --changes) {
        const std::size_t position = below(bytes.size());
        switch (below(5)) {
        case 0:
            bytes[position] = static_cast<char>(random());
            break;
        case 1:
            bytes[position] = static_cast<char>(bytes[position] ^ (1 << below(8)));
            break;
        case 2:
            bytes.erase(position, 1 + below(8));
            break;
        case 3:
            bytes.insert(position, 1 + below(8), static_cast<char>(random()));
            break;
        default:
            bytes.insert(position, bytes.substr(below(bytes.size()), below(32)));
        }
    }
    return bytes;
}

std::vector<std::string> Corpus() {
    std::vector<std::string> corpus;
    for (const std::string& der : OddCertificates())
        if (der.size() < 4000)
            corpus.push_back(der);
    return corpus;
}

/// Has `take` judge mutations of the corpus; it says whether the input was taken.
template <class Take>
void Mutate(const std::vector<std::string>& corpus, Take take) {
    unsigned taken = 0;
    for (unsigned seed = 0; seed < kSeeds && !testing::Test::HasFailure(); ++seed) {
        SCOPED_TRACE(seed);
        taken += take(Mutated(corpus[seed % corpus.size()], seed));
    }
    EXPECT_GT(taken, kSeeds / 20) << "the mutations break too much to test anything";
    EXPECT_LT(taken, kSeeds) << "the mutations change nothing";
}

TEST(Mutation, AsnDer_WhatIsTakenComesBackThroughXml) {
    Mutate(Corpus(), [](const std::string& der) {
        CkAsn asn, again;
        if (!asn.LoadEncoded(ToBase64(der), "Base64"))
            return false;
        EXPECT_EQ(asn.getEncodedDer("Base64"), ToBase64(der));
        CkXml tree;
        EXPECT_TRUE(tree.LoadXml2(asn.asnToXml(), true));
        EXPECT_TRUE(again.LoadAsnXml(tree.getXml()));
        EXPECT_EQ(again.getEncodedDer("Base64"), ToBase64(der));
        return true;
    });
}

TEST(Mutation, Certificates_GiveValidTextsOrNone) {
    Mutate(Corpus(), [](const std::string& der) {
        CkCert certificate;
        const bool loaded = certificate.LoadFromBinary2(der.data(), der.size());
        EXPECT_EQ(certificate.lastErrorText().empty(), loaded);
        for (const std::string& text :
             {certificate.subjectDN(), certificate.subjectCN(), certificate.subjectO(),
              certificate.rfc822Name(), certificate.validFromStr(), certificate.validToStr()})
            EXPECT_TRUE(IsUtf8(text)) << ToHex(text);
        EXPECT_LE(certificate.get_IntendedKeyUsage(), 0xFFU);
        // A changed length at the front may leave the end outside, as padding.
        EXPECT_EQ(certificate.getEncoded().empty(), !loaded);
        EXPECT_TRUE(der.starts_with(FromBase64(certificate.getEncoded())));
        const std::unique_ptr<CkPublicKey> key = certificate.ExportPublicKey();
        EXPECT_EQ(key != nullptr, certificate.get_LastMethodSuccess());
        EXPECT_EQ(key == nullptr, !certificate.lastErrorText().empty());
        EXPECT_TRUE(key == nullptr || key->getEncoded(true, "Base64") != "");
        return loaded;
    });
}

TEST(Mutation, AsnXml_WhatIsTakenIsDer) {
    std::vector<std::string> corpus;
    for (const std::string& der : Corpus()) {
        CkAsn asn;
        ASSERT_TRUE(asn.LoadEncoded(ToBase64(der), "Base64"));
        corpus.push_back(asn.asnToXml());
    }
    Mutate(corpus, [](const std::string& xml) {
        CkAsn asn, again;
        if (!asn.LoadAsnXml(xml))
            return false;
        const std::string der = asn.getEncodedDer("Base64");
        EXPECT_TRUE(again.LoadEncoded(der, "Base64"));
        EXPECT_EQ(again.getEncodedDer("Base64"), der);
        return true;
    });
}

TEST(Mutation, Json_IsTakenExactlyWhenAnotherParserTakesItAsAnObject) {
    const std::string text =
        R"({"action":"GSTReturnSign","hash":"a\n\u00e9 आशा","n":[1,-2.5e3,{"x":null,"y":[]}],)"
        R"("b":true,"o":{"k":{"l":"m"}},"nonce":"17"})";
    Mutate({text}, [](const std::string& json) {
        CkJsonObject object;
        const bool loaded = object.Load(json);
        const nlohmann::json reference = nlohmann::json::parse(json, nullptr, false);
        EXPECT_EQ(loaded, reference.is_object()) << json;
        EXPECT_EQ(loaded, object.lastErrorText().empty()) << json;
        EXPECT_TRUE(IsUtf8(object.lastErrorText())) << json;
        if (loaded) {
            EXPECT_TRUE(nlohmann::json::accept(object.emit())) << json;
            if (reference.contains("hash") && reference["hash"].is_string()) {
                EXPECT_NE(object.IndexOf("hash"), -1) << json;
            }
        }
        return loaded;
    });
}

} // namespace
