// The forms stay the same when the process speaks another language than English.

#include "ck/CkCert.h"
#include "ck/CkDateTime.h"
#include "ck/CkJsonObject.h"

#include "support/Certificates.h"
#include "support/ScratchFolder.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cstdlib>
#include <ctime>

namespace {

/// A process in German, where the months have other names and a comma stands before a fraction. The locale is
/// compiled for the test (packages locales and libc-bin), since a machine need not have any but C.
class German : public testing::Test {
protected:
    German() {
        const std::string command = "localedef --no-archive -i de_DE -f UTF-8 '" + folder_.Path().string() +
                                    "/de_DE.UTF-8' >/dev/null 2>&1";
        compiled_ = std::system(command.c_str()) == 0; // NOLINT(concurrency-mt-unsafe)
        setenv("LOCPATH", folder_.Path().c_str(), 1);
        set_ = std::setlocale(LC_ALL, "de_DE.UTF-8") != nullptr;
    }
    ~German() override {
        std::setlocale(LC_ALL, "C");
        unsetenv("LOCPATH");
    }
    void SetUp() override {
        if (!compiled_)
            GTEST_SKIP() << "localedef cannot compile de_DE; install package locales";
        ASSERT_TRUE(set_);
        std::tm december{};
        december.tm_mon = 11;
        char name[32];
        std::strftime(name, sizeof name, "%B", &december);
        ASSERT_STREQ(name, "Dezember") << "the locale has no effect";
        ASSERT_STREQ(std::localeconv()->decimal_point, ",");
    }

private:
    ScratchFolder folder_;
    bool compiled_ = false;
    bool set_ = false;
};

TEST_F(German, DatesOfCertificatesAreEnglish) {
    const std::string der = CertificateOrder{.notBefore = "221206000000Z", .notAfter = "230501235959Z"}.der();
    CkCert certificate;
    ASSERT_TRUE(certificate.LoadFromBinary2(der.data(), der.size()));
    EXPECT_EQ(certificate.validFromStr(), "Tue, 06 Dec 2022 00:00:00 GMT");
    EXPECT_EQ(certificate.validToStr(), "Mon, 01 May 2023 23:59:59 GMT");
}

TEST_F(German, DatesAreReadInEnglish) {
    CkDateTime time;
    ASSERT_TRUE(time.SetFromRfc822("Tue, 06 Dec 2022 00:00:00 GMT"));
    EXPECT_EQ(time.getAsTimestamp(false), "2022-12-06T00:00:00Z");
    EXPECT_FALSE(time.SetFromRfc822("Di, 06 Dez 2022 00:00:00 GMT"));
}

TEST_F(German, FractionsInJsonHaveAPoint) {
    CkJsonObject object;
    ASSERT_TRUE(object.Load(R"({"a":2.75,"b":[0.5,1e-3],"c":"3.9"})"));
    EXPECT_EQ(object.IntOf("a"), 2);
    EXPECT_EQ(object.IntOf("c"), 3);
    EXPECT_EQ(object.stringOf("a"), "2.75");
    EXPECT_EQ(object.emit(), R"({"a":2.75,"b":[0.5,1e-3],"c":"3.9"})");
}

} // namespace
