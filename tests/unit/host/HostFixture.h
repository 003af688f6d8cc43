#pragma once

#include "QMHostShared.h"
#include "support/ScratchFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

/// A test in a new working directory of its own, with the host's globals at their initial values.
class HostFixture : public ::testing::Test {
protected:
    HostFixture() {
        folder_.Enter();
        AppLogLevel = INFO;
        TokenDriverFullPath = "./QMTokenDriver.so";
    }

    static std::string Log() { return ReadFile("QMSignerExtHostLog.txt"); }

    /// Whether a line of the log is `text` behind its time.
    static bool HasLogged(const std::string& text) {
        return Log().find(" " + text + "\n") != std::string::npos;
    }

private:
    ScratchFolder folder_;
};
