#include "ck/CkJsonObject.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

namespace {

class CkJsonFile : public testing::Test {
protected:
    CkJsonFile() {
        std::string pattern = testing::TempDir() + "ck_json_XXXXXX";
        folder_ = mkdtemp(pattern.data());
        file_ = folder_ + "/settings.json";
    }
    ~CkJsonFile() override { std::filesystem::remove_all(folder_); }

    void Write(std::string_view content) { std::ofstream(file_) << content; }

    std::string folder_, file_;
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

TEST_F(CkJsonFile, LoadFile_AMissingFile_IsNamedWithTheSystemsReason) {
    EXPECT_FALSE(object_.LoadFile(file_.c_str()));
    EXPECT_EQ(object_.lastErrorText(), file_ + ": No such file or directory");
}

TEST_F(CkJsonFile, LoadFile_AFolder_IsNamedWithTheSystemsReason) {
    EXPECT_FALSE(object_.LoadFile(folder_.c_str()));
    EXPECT_EQ(object_.lastErrorText(), folder_ + ": Is a directory");
}

TEST_F(CkJsonFile, LoadFile_AnUnreadableFile_IsNamedWithTheSystemsReason) {
    Write("{}");
    chmod(file_.c_str(), 0);
    constexpr uid_t kNobody = 65534;
    const uid_t user = geteuid(); // root reads everything
    if (user == 0) {
        ASSERT_EQ(seteuid(kNobody), 0);
    }
    EXPECT_FALSE(object_.LoadFile(file_.c_str()));
    ASSERT_EQ(seteuid(user), 0);
    EXPECT_EQ(object_.lastErrorText(), file_ + ": Permission denied");
}

TEST_F(CkJsonFile, LoadFile_ABrokenFile_IsNamedWithThePositionOfTheError) {
    Write("{\n\"a\": }");
    EXPECT_FALSE(object_.LoadFile(file_.c_str()));
    EXPECT_TRUE(object_.lastErrorText().starts_with(file_ + ": parse error at line 2, column 6"))
        << object_.lastErrorText();
    EXPECT_EQ(object_.emit(), "{}");
}

TEST_F(CkJsonFile, LoadFile_AnEmptyFile_IsNoObject) {
    Write("");
    EXPECT_FALSE(object_.LoadFile(file_.c_str()));
    EXPECT_TRUE(object_.lastErrorText().starts_with(file_ + ": ")) << object_.lastErrorText();
}

TEST_F(CkJsonFile, LoadFile_AFileOf100Megabytes_IsRefusedUnread) {
    Write("{}");
    std::filesystem::resize_file(file_, 100'000'000);
    EXPECT_FALSE(object_.LoadFile(file_.c_str()));
    EXPECT_EQ(object_.lastErrorText(), file_ + ": larger than 1000000 bytes");
}

TEST_F(CkJsonFile, LoadFile_APipeWithoutAWriter_DoesNotWait) {
    ASSERT_EQ(mkfifo(file_.c_str(), 0600), 0);
    EXPECT_FALSE(object_.LoadFile(file_.c_str()));
    EXPECT_EQ(object_.lastErrorText(), file_ + ": not a regular file");
}

TEST_F(CkJsonFile, LoadFile_ADeviceWithoutAnEnd_IsRefused) {
    EXPECT_FALSE(object_.LoadFile("/dev/zero"));
    EXPECT_EQ(object_.lastErrorText(), "/dev/zero: not a regular file");
}

} // namespace
