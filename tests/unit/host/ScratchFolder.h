#pragma once

#include "QMHostShared.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

/// A test in a new working directory of its own, with the program's globals at their initial values.
class ScratchFolder : public ::testing::Test {
protected:
    ScratchFolder() {
        std::string name = (std::filesystem::temp_directory_path() / "quillmark-XXXXXX").string();
        folder_ = mkdtemp(name.data());
        std::filesystem::current_path(folder_);
        AppLogLevel = INFO;
        TokenDriverFullPath = "./QMTokenDriver.so";
    }
    ~ScratchFolder() override {
        std::filesystem::current_path(start_);
        std::filesystem::remove_all(folder_);
    }

    static std::string Read(const std::string& fileName) {
        std::ostringstream content;
        content << std::ifstream(fileName).rdbuf();
        return content.str();
    }
    static void Write(const std::string& fileName, const std::string& content) {
        std::ofstream(fileName) << content;
    }
    static std::string Log() { return Read("QMSignerExtHostLog.txt"); }

private:
    const std::filesystem::path start_ = std::filesystem::current_path();
    std::filesystem::path folder_;
};
