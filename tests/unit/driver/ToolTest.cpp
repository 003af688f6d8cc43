#include "P11KitHome.h"
#include "SoftToken.h"

#include <nlohmann/json.hpp>

#include <pty.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <optional>
#include <thread>

// quillmark-tokens as a person or a script runs it.

namespace {

using Json = nlohmann::json;

struct Outcome {
    int status;
    std::string output; ///< with what was asked on the terminal, where there was one
};

/// A person types a moment after the question, when the terminal has stopped showing it.
void WaitUntilSilent(int terminal) {
    termios now{};
    for (int i = 0; i < 500 && tcgetattr(terminal, &now) == 0 && (now.c_lflag & ECHO) != 0; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
}

/// Runs a shell command; with `typed`, on a terminal of its own on which that is typed when a question ends
/// in "): ".
Outcome RunCommand(const std::string& command, const std::optional<std::string>& typed = std::nullopt) {
    int terminal = -1;
    const pid_t child = forkpty(&terminal, nullptr, nullptr, nullptr);
    if (child == 0) {
        const std::string onItsOwn = "setsid --wait " + command; // without a terminal to ask on
        execl("/bin/sh", "sh", "-c", (typed ? command : onItsOwn).c_str(), nullptr);
        _exit(127);
    }
    Outcome run{-1, {}};
    std::array<char, 4096> some{};
    for (ssize_t length = 0; (length = read(terminal, some.data(), some.size())) > 0;) { // fails at the end
        run.output.append(some.data(), static_cast<std::size_t>(length));
        if (!typed || !run.output.ends_with("): "))
            continue;
        WaitUntilSilent(terminal);
        if (write(terminal, typed->data(), typed->size()) < 0)
            ADD_FAILURE() << "the terminal takes no input";
    }
    close(terminal);
    int status = 0;
    waitpid(child, &status, 0);
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return run;
}

class ToolTest : public DriverFixture {
protected:
    static Outcome Tool(const std::string& arguments,
                        const std::optional<std::string>& typed = std::nullopt) {
        return RunCommand(std::string("'") + QM_TOKENS_TOOL + "' " + arguments, typed);
    }

    /// The JSON report; `status` is the exit status.
    Json Report(const std::string& arguments = "--json") {
        const Outcome run = Tool(arguments);
        status = run.status;
        return Json::parse(run.output, nullptr, false);
    }

    void AddFile(const std::string& fake) {
        home.AddModule(fake, std::string(QM_DRIVER_FAKES) + "/" + fake + ".so");
    }

    /// The only certificate of the only module cannot sign for this reason.
    void ExpectCannotSign(const std::string& fake, const std::string& reason) {
        AddFile(fake);
        const Json report = Report();
        const Json certificate = OnlyToken(report).at("certificates").at(0);
        EXPECT_FALSE(certificate.at("canSign"));
        EXPECT_EQ(certificate.at("reasons"), Json::array({reason}));
        EXPECT_EQ(report.at("canSign"), 0);
        EXPECT_EQ(status, 1);
    }

    /// The only token of the only module.
    static Json OnlyToken(const Json& report) {
        return report.at("modules").at(0).at("slots").at(0).at("token");
    }

    int status = -1;
};

} // namespace

TEST_F(ToolTest, AnUnknownOption_IsAClearErrorWithStatus2) {
    const Outcome run = Tool("--jsno");
    EXPECT_EQ(run.status, 2);
    EXPECT_NE(run.output.find("unknown option '--jsno'"), std::string::npos) << run.output;
}

TEST_F(ToolTest, Help_NamesEveryOption) {
    const Outcome run = Tool("--help");
    EXPECT_EQ(run.status, 0);
    for (const char* option : {"--json", "--all", "--login", "--log", "--help"})
        EXPECT_NE(run.output.find(option), std::string::npos) << option;
}

TEST_F(ToolTest, WithoutModules_NoneCanSign) {
    const Json report = Report();
    EXPECT_EQ(status, 1);
    EXPECT_EQ(report.at("canSign"), 0);
    for (const Json& module :
         report.at("modules")) // the machine's own, which this user's configuration leaves out
        EXPECT_FALSE(module.at("used")) << module;
    EXPECT_NE(Tool("").output.find("0 certificates can sign"), std::string::npos);
}

TEST_F(ToolTest, AGoodCertificate_CanSignAsFarAsIsSeenWithoutLogin) {
    AddFile("works");
    const Json report = Report();
    const Json token = OnlyToken(report);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(report.at("canSign"), 1);
    EXPECT_EQ(token.at("label"), "Fake Token");
    EXPECT_TRUE(token.at("offered"));
    const Json certificate = token.at("certificates").at(0);
    EXPECT_EQ(certificate.at("subject"), "CN=Fake User");
    EXPECT_EQ(certificate.at("id"), "ABCD01");
    EXPECT_TRUE(certificate.at("offered"));
    EXPECT_TRUE(certificate.at("canSign"));
    EXPECT_TRUE(certificate.at("first"));
    EXPECT_TRUE(certificate.at("needsLogin"));
    const Outcome text = Tool("");
    EXPECT_NE(text.output.find("shows after login (--login)"), std::string::npos) << text.output;
    EXPECT_NE(text.output.find("1 certificate can sign"), std::string::npos) << text.output;
}

TEST_F(ToolTest, Login_AsksOnTheTerminalAndShowsThePrivateKey) {
    AddFile("works");
    const Outcome run = Tool("--login", "1234\n");
    EXPECT_EQ(run.status, 0);
    EXPECT_NE(run.output.find("PIN of \"Fake Token\""), std::string::npos) << run.output;
    EXPECT_NE(run.output.find("login: logged in"), std::string::npos) << run.output;
    EXPECT_EQ(run.output.find("shows after login"), std::string::npos) << run.output;
    EXPECT_EQ(run.output.find("1234"), std::string::npos) << "the PIN is to be seen";
}

TEST_F(ToolTest, AWrongPin_IsToldInWordsAndByTheStatus) {
    AddFile("works");
    const Outcome run = Tool("--login", "4321\n");
    EXPECT_EQ(run.status, 3);
    EXPECT_NE(run.output.find("The password or PIN is incorrect (CKR_PIN_INCORRECT)"), std::string::npos)
        << run.output;
}

TEST_F(ToolTest, NothingTyped_IsNoLogin) {
    AddFile("pin-locked");
    const Outcome run = Tool("--login", "\n");
    EXPECT_EQ(run.output.find("login: "), std::string::npos) << run.output;
    EXPECT_NE(run.output.find("its PIN: locked"), std::string::npos) << run.output;
}

TEST_F(ToolTest, CtrlCAtTheQuestion_EndsItAndLeavesTheTerminalAsItWas) {
    AddFile("works");
    const std::string tool = std::string("'") + QM_TOKENS_TOOL + "' --login";
    const Outcome run = RunCommand("trap : INT; " + tool + "; echo status $?; stty -a", "\x03");
    EXPECT_NE(run.output.find("status 130"), std::string::npos) << run.output;
    EXPECT_NE(run.output.find(" echo "), std::string::npos) << run.output;
}

TEST_F(ToolTest, TheEndOfInputAtTheQuestion_IsAClearError) {
    AddFile("works");
    const Outcome run = Tool("--login", "\x04");
    EXPECT_EQ(run.status, 2);
    EXPECT_NE(run.output.find("no PIN was read"), std::string::npos) << run.output;
}

TEST_F(ToolTest, LoginWithoutATerminal_IsAClearError) {
    AddFile("works");
    const Outcome run = Tool("--login");
    EXPECT_EQ(run.status, 2);
    EXPECT_NE(run.output.find("no terminal"), std::string::npos) << run.output;
}

TEST_F(ToolTest, ACaCertificate_IsAChainCertificate) {
    ExpectCannotSign("is-hardware-with-a-ca-certificate-only", "chain certificate");
}

TEST_F(ToolTest, WithALockedPin_NoCertificateCanSign) { ExpectCannotSign("pin-locked", "its PIN is locked"); }

TEST_F(ToolTest, WithoutAPinSet_NoCertificateCanSign) {
    ExpectCannotSign("pin-not-set", "its PIN is not set");
}

TEST_F(ToolTest, CertificatesOfNoUse_AreToldWhy) {
    AddFile("holds-certificates-of-no-use");
    std::map<std::string, std::string> reasons;
    const Json token = OnlyToken(Report());
    for (const Json& certificate : token.at("certificates"))
        reasons[certificate.value("subject", "unreadable")] += certificate.at("reasons").dump();
    const std::map<std::string, std::string> expected = {
        {"CN=Expired", R"(["expired"])"},
        {"CN=Not yet valid", R"(["not yet valid"])"},
        {"CN=Not RSA", R"(["not RSA"])"},
        {"CN=For encryption", R"(["key usage: not for signatures"])"},
        {"CN=Without key usage", R"(["key usage: it has none, and passes for a chain certificate"])"},
        {"unreadable", R"(["it cannot be read"])"},
    };
    EXPECT_EQ(reasons, expected);
    EXPECT_EQ(status, 1);
}

TEST_F(ToolTest, WithoutPrivateKey_IsToldAfterLogin) {
    AddFile("lacks-private-keys");
    const Outcome run = Tool("--login", "1234\n");
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.output.find("because: no private key with its id"), std::string::npos) << run.output;
}

TEST_F(ToolTest, APrivateKeyOfAnotherCertificate_IsToldAfterLogin) {
    AddFile("has-a-foreign-key-with-its-id");
    const Outcome run = Tool("--login", "1234\n");
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.output.find("belongs to another certificate"), std::string::npos) << run.output;
}

TEST_F(ToolTest, TokensThatAreNotOffered_AreToldWhy) {
    AddFile("not-initialised");
    EXPECT_EQ(OnlyToken(Report()).at("reason"), "token not initialised");
    EXPECT_EQ(status, 1);
}

TEST_F(ToolTest, TheFirstInTheWindow_IsMarked) {
    AddFile("holds-certificates-of-no-use");
    AddFile("works");
    std::vector<std::string> first;
    const Json report = Report();
    for (const Json& module : report.at("modules")) {
        const Json slots = module.at("slots");
        for (const Json& slot : slots)
            for (const Json& certificate : slot.at("token").at("certificates"))
                if (certificate.at("first"))
                    first.push_back(certificate.at("subject"));
    }
    EXPECT_EQ(first, std::vector<std::string>{"CN=Fake User"});
    EXPECT_EQ(report.at("canSign"), 1);
    const Outcome text = Tool("");
    EXPECT_NE(text.output.find("the first in the window"), std::string::npos) << text.output;
}

TEST_F(ToolTest, AnExpiredCertificate_IsOfferedButCannotSign) {
    AddFile("holds-certificates-of-no-use");
    const Json token = OnlyToken(Report());
    for (const Json& certificate : token.at("certificates")) {
        const std::string subject = certificate.value("subject", "unreadable");
        const bool isOffered = subject == "CN=Expired" || subject == "CN=Not yet valid";
        EXPECT_EQ(certificate.at("offered"), isOffered) << subject;
        EXPECT_FALSE(certificate.at("canSign")) << subject;
    }
}

TEST_F(ToolTest, CertificatesOfATokenThatCannotSign_AreInTheJsonWhenAskedFor) {
    AddFile("cannot-sign-with-rsa");
    const Json left = OnlyToken(Report());
    EXPECT_EQ(left.at("certificates").size(), 0U);
    EXPECT_EQ(left.at("certificateCount"), 1);
    EXPECT_EQ(OnlyToken(Report("--json --all")).at("certificates").size(), 1U);
}

TEST_F(ToolTest, TheLog_IsPrinted) {
    AddFile("holds-certificates-of-no-use");
    Report();
    const Outcome run = Tool("--log");
    EXPECT_EQ(run.status, 0);
    EXPECT_NE(run.output.find("list: left out: id 04 on the token \"Fake Token\" (serial number 0001), "
                              "key usage: not for signatures"),
              std::string::npos)
        << run.output;
}

TEST_F(ToolTest, ModulesThatAreNotUsed_AreToldWhy) {
    AddFile("works");
    AddFile("fails-at-load");
    AddFile("crashes-at-load");
    AddFile("is-not-there");
    home.AddModule("disabled", std::string(QM_DRIVER_FAKES) + "/works.so", "disable-in: QMTokenDriver\n");
    std::map<std::string, std::string> reasons;
    const Json report = Report();
    for (const Json& module : report.at("modules"))
        reasons[module.at("name")] = module.value("reason", "");
    EXPECT_EQ(status, 0);
    EXPECT_EQ(reasons.at("works"), "");
    EXPECT_EQ(reasons.at("fails-at-load"), "An error occurred on the device (CKR_DEVICE_ERROR)");
    EXPECT_EQ(reasons.at("crashes-at-load"), "crashes when it is loaded");
    EXPECT_NE(reasons.at("is-not-there").find("is-not-there.so"), std::string::npos)
        << reasons.at("is-not-there");
    EXPECT_EQ(reasons.at("disabled"), "not enabled for QMTokenDriver, or not read for this user");
}

TEST_F(ToolTest, WithNoFolderToWriteTo_EveryModuleIsToldThatItMayBeTheOneThatCrashes) {
    const ScopedVariable temporary("TMPDIR", "/proc");
    const ScopedVariable runtime("XDG_RUNTIME_DIR", "/proc");
    AddFile("works");
    EXPECT_EQ(Report().at("canSign"), 1) << "nothing crashes yet";
    AddFile("crashes-at-load");
    const Json report = Report();
    EXPECT_EQ(status, 1);
    for (const Json& module : report.at("modules"))
        EXPECT_EQ(module.at("reason"), "crashes when it is loaded, it or another module: "
                                       "there is no folder to find out which");
}

TEST_F(ToolTest, SoftHsm_IsUnderstood) {
    SoftToken(home).Store({0x01});
    const Outcome run = Tool("--login", "1234\n");
    EXPECT_NE(run.output.find("token \"Soft Token\", SoftHSM v2"), std::string::npos) << run.output;
    EXPECT_NE(run.output.find("login: logged in"), std::string::npos) << run.output;
    EXPECT_NE(run.output.find("not offered: token not initialised"), std::string::npos) << run.output;
}

TEST_F(ToolTest, WhatAModuleWritesToStdout_IsNotInTheReport) {
    AddFile("writes-to-stdout");
    const Json report = Report("--json 2>/dev/null");
    ASSERT_TRUE(report.is_object()) << "no JSON";
    EXPECT_EQ(report.at("canSign"), 1);
    EXPECT_EQ(status, 0);
}

TEST_F(ToolTest, ControlCharactersOfATokensLabel_DoNotReachTheTerminal) {
    AddFile("label-with-an-escape");
    for (const Outcome& run : {Tool(""), Tool("--login", "1234\n")})
        EXPECT_EQ(run.output.find('\x1b'), std::string::npos) << run.output;
}
