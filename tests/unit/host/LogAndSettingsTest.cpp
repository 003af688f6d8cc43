#include "HostFixture.h"
#include "MainSelectCertificate.h"

#include <regex>

namespace {

using LogTextToFileTest = HostFixture;

TEST_F(LogTextToFileTest, AMessageBelowTheThresholdDoesNotEvenCreateTheFile) {
    LogTextToFile("trace", DEBUG);
    EXPECT_FALSE(std::filesystem::exists("QMSignerExtHostLog.txt"));
}

TEST_F(LogTextToFileTest, MessagesAtAndAboveTheThresholdAreAppended) {
    LogTextToFile("progress", INFO);
    LogTextToFile("failure", EXCEPTION);
    EXPECT_TRUE(std::regex_match(Log(), std::regex("[^\n]{24} progress\n[^\n]{24} failure\n"))) << Log();
}

TEST_F(LogTextToFileTest, AThresholdOfOneWritesEveryLevel) {
    AppLogLevel = DEBUG;
    for (const LogLevels level : {DEBUG, INFO, EXCEPTION})
        LogTextToFile(std::to_string(level), level);
    EXPECT_TRUE(std::regex_match(Log(), std::regex(".{24} 1\n.{24} 2\n.{24} 3\n"))) << Log();
}

TEST_F(LogTextToFileTest, AThresholdAboveThreeSilencesTheLog) {
    AppLogLevel = static_cast<LogLevels>(4);
    LogTextToFile("failure", EXCEPTION);
    EXPECT_FALSE(std::filesystem::exists("QMSignerExtHostLog.txt"));
}

TEST_F(LogTextToFileTest, ALineIsTheTimeOfDayOneBlankAndTheText) {
    LogTextToFile("text", INFO);
    const std::regex line(
        "(Mon|Tue|Wed|Thu|Fri|Sat|Sun) (Jan|Feb|Mar|Apr|May|Jun|Jul|Aug|Sep|Oct|Nov|Dec) [ \\d]\\d "
        "\\d\\d:\\d\\d:\\d\\d \\d{4} text\n");
    EXPECT_TRUE(std::regex_match(Log(), line)) << Log();
}

TEST_F(LogTextToFileTest, AnEmptyTextLeavesTheTimeStampAndOneBlank) {
    LogTextToFile("", INFO);
    EXPECT_EQ(Log().size(), 26U);
    EXPECT_EQ(Log().substr(24), " \n");
}

TEST_F(LogTextToFileTest, AFileThatCannotBeOpenedIsPassedOverAndWrittenAgainLater) {
    std::filesystem::create_directory("QMSignerExtHostLog.txt");
    LogTextToFile("lost", INFO);
    std::filesystem::remove("QMSignerExtHostLog.txt");
    LogTextToFile("kept", INFO);
    EXPECT_EQ(Log().substr(24), " kept\n");
}

using LoadQMHostSettingsTest = HostFixture;

TEST_F(LoadQMHostSettingsTest, WithoutAFileTheDefaultsStayAndTheReasonIsLogged) {
    LoadQMHostSettings();
    EXPECT_EQ(AppLogLevel, INFO);
    EXPECT_EQ(TokenDriverFullPath, "./QMTokenDriver.so");
    const std::string text = " Cound not Load Settings from QMHostSettings.json - ";
    ASSERT_EQ(Log().substr(24, text.size()), text);
    EXPECT_THAT(Log(), testing::HasSubstr("No such file or directory"));
}

TEST_F(LoadQMHostSettingsTest, TheLineThatTellsOfTheFileIsWrittenUnderTheDefaultThreshold) {
    WriteFile("QMHostSettings.json", R"({"AppLogLevel": 9})");
    LoadQMHostSettings();
    EXPECT_EQ(Log().substr(24), " Loading Settings from QMHostSettings.json\n");
    EXPECT_EQ(static_cast<int>(AppLogLevel), 9);
}

TEST_F(LoadQMHostSettingsTest, EachMemberIsTakenAsItStandsOrLeavesItsDefault) {
    const struct {
        const char* rule;
        const char* file;
        int level;
        const char* path;
        const char* logged = " Loading Settings from QMHostSettings.json\n";
    } cases[] = {
        {"a malformed file leaves the defaults", R"({"AppLogLevel": 1, )", INFO, "./QMTokenDriver.so",
         "Cound not Load Settings from QMHostSettings.json - "},
        {"the log level alone leaves the path", R"({"AppLogLevel": 1})", DEBUG, "./QMTokenDriver.so"},
        {"an empty path keeps the default", R"({"TokenDriverFullPath": ""})", INFO, "./QMTokenDriver.so"},
        {"a path is taken as it stands", R"({"TokenDriverFullPath": "/opt/maker/lib with blank.so"})", INFO,
         "/opt/maker/lib with blank.so"},
        {"members of other types are converted, not refused",
         R"({"AppLogLevel": "1", "TokenDriverFullPath": 17})", DEBUG, "17"},
    };
    for (const auto& it : cases) {
        SCOPED_TRACE(it.rule);
        AppLogLevel = INFO;
        TokenDriverFullPath = "./QMTokenDriver.so";
        std::filesystem::remove("QMSignerExtHostLog.txt");
        WriteFile("QMHostSettings.json", it.file);
        LoadQMHostSettings();
        EXPECT_EQ(AppLogLevel, it.level);
        EXPECT_EQ(TokenDriverFullPath, it.path);
        EXPECT_THAT(Log(), testing::HasSubstr(it.logged));
    }
}

} // namespace
