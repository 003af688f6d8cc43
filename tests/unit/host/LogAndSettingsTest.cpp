#include "MainSelectCertificate.h"
#include "ScratchFolder.h"

#include <regex>

namespace {

using LogTextToFileTest = ScratchFolder;

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

using LoadQMHostSettingsTest = ScratchFolder;

TEST_F(LoadQMHostSettingsTest, WithoutAFileTheDefaultsStayAndTheReasonIsLogged) {
    LoadQMHostSettings();
    EXPECT_EQ(AppLogLevel, INFO);
    EXPECT_EQ(TokenDriverFullPath, "./QMTokenDriver.so");
    const std::string text = " Cound not Load Settings from QMHostSettings.json - ";
    ASSERT_EQ(Log().substr(24, text.size()), text);
    EXPECT_NE(Log().find("No such file or directory"), std::string::npos) << Log();
}

TEST_F(LoadQMHostSettingsTest, AMalformedFileLeavesTheDefaults) {
    Write("QMHostSettings.json", R"({"AppLogLevel": 1, )");
    LoadQMHostSettings();
    EXPECT_EQ(AppLogLevel, INFO);
    EXPECT_NE(Log().find("Cound not Load Settings from QMHostSettings.json - "), std::string::npos) << Log();
}

TEST_F(LoadQMHostSettingsTest, TheLogLevelAloneLeavesTheDriverPath) {
    Write("QMHostSettings.json", R"({"AppLogLevel": 1})");
    LoadQMHostSettings();
    EXPECT_EQ(AppLogLevel, DEBUG);
    EXPECT_EQ(TokenDriverFullPath, "./QMTokenDriver.so");
}

TEST_F(LoadQMHostSettingsTest, TheLineThatTellsOfTheFileIsWrittenUnderTheDefaultThreshold) {
    Write("QMHostSettings.json", R"({"AppLogLevel": 9})");
    LoadQMHostSettings();
    EXPECT_EQ(Log().substr(24), " Loading Settings from QMHostSettings.json\n");
    EXPECT_EQ(static_cast<int>(AppLogLevel), 9);
}

TEST_F(LoadQMHostSettingsTest, AnEmptyPathKeepsTheDefault) {
    Write("QMHostSettings.json", R"({"TokenDriverFullPath": ""})");
    LoadQMHostSettings();
    EXPECT_EQ(TokenDriverFullPath, "./QMTokenDriver.so");
}

TEST_F(LoadQMHostSettingsTest, APathIsTakenAsItStands) {
    Write("QMHostSettings.json", R"({"TokenDriverFullPath": "/opt/maker/lib with blank.so"})");
    LoadQMHostSettings();
    EXPECT_EQ(TokenDriverFullPath, "/opt/maker/lib with blank.so");
}

TEST_F(LoadQMHostSettingsTest, MembersOfOtherTypesAreConvertedNotRefused) {
    Write("QMHostSettings.json", R"({"AppLogLevel": "1", "TokenDriverFullPath": 17})");
    LoadQMHostSettings();
    EXPECT_EQ(AppLogLevel, DEBUG);
    EXPECT_EQ(TokenDriverFullPath, "17");
}

} // namespace
