#include "ck/CkJsonObject.h"

#include "support/ScratchFolder.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

class CkJsonFile : public testing::Test {
protected:
    void Write(std::string_view content) const { WriteFile(file_, content); }

    /// What LoadFile says of a file that it refuses, behind the file's name.
    std::string ReasonAgainst(const std::string& file) {
        EXPECT_FALSE(object_.LoadFile(file.c_str()));
        EXPECT_TRUE(object_.lastErrorText().starts_with(file + ": ")) << object_.lastErrorText();
        return object_.lastErrorText().substr(std::min(object_.lastErrorText().size(), file.size() + 2));
    }

    ScratchFolder folder_;
    const std::string file_ = folder_.Path() / "settings.json";
    CkJsonObject object_;
};

TEST_F(CkJsonFile, LoadFile_ReadsTheObject) {
    Write("{\n  \"AppLogLevel\": 1\n}\n");
    ASSERT_TRUE(object_.LoadFile(file_.c_str())) << object_.lastErrorText();
    EXPECT_EQ(object_.IntOf("AppLogLevel"), 1);
    EXPECT_EQ(object_.lastErrorText(), "");
}

TEST_F(CkJsonFile, LoadFile_TakesAByteOrderMark) {
    Write("\xEF\xBB\xBF{\"a\":1}");
    EXPECT_TRUE(object_.LoadFile(file_.c_str())) << object_.lastErrorText();
}

TEST_F(CkJsonFile, LoadFile_WhatItCannotRead_IsNamedWithTheSystemsReason) {
    EXPECT_EQ(ReasonAgainst(file_), "No such file or directory");
    EXPECT_EQ(ReasonAgainst(folder_.Path()), "Is a directory");
    EXPECT_EQ(ReasonAgainst("/dev/zero"), "not a regular file") << "it has no end";
}

TEST_F(CkJsonFile, LoadFile_AnUnreadableFile_IsNamedWithTheSystemsReason) {
    Write("{}");
    chmod(file_.c_str(), 0);
    constexpr uid_t kNobody = 65534;
    const uid_t user = geteuid(); // root reads everything
    if (user == 0) {
        ASSERT_EQ(seteuid(kNobody), 0);
    }
    const std::string reason = ReasonAgainst(file_);
    ASSERT_EQ(seteuid(user), 0);
    EXPECT_EQ(reason, "Permission denied");
}

TEST_F(CkJsonFile, LoadFile_ABrokenFile_IsNamedWithThePositionOfTheError) {
    Write("{\n\"a\": }");
    EXPECT_TRUE(ReasonAgainst(file_).starts_with("parse error at line 2, column 6"))
        << object_.lastErrorText();
    EXPECT_EQ(object_.emit(), "{}");
}

TEST_F(CkJsonFile, LoadFile_AnEmptyFile_IsNoObject) {
    Write("");
    EXPECT_NE(ReasonAgainst(file_), "");
}

TEST_F(CkJsonFile, LoadFile_AFileOf100Megabytes_IsRefusedUnread) {
    Write("{}");
    std::filesystem::resize_file(file_, 100'000'000);
    EXPECT_EQ(ReasonAgainst(file_), "larger than 1000000 bytes");
}

TEST_F(CkJsonFile, LoadFile_APipeWithoutAWriter_DoesNotWait) {
    ASSERT_EQ(mkfifo(file_.c_str(), 0600), 0);
    EXPECT_EQ(ReasonAgainst(file_), "not a regular file");
}

} // namespace
