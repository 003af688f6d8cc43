#include "P11KitHome.h"
#include "SoftToken.h"

#include <nlohmann/json.hpp>

#include <poll.h>
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

namespace fs = std::filesystem;
using Json = nlohmann::json;
using testing::HasSubstr;
using testing::Not;

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

constexpr const char* kInterrupt = "\x03"; ///< Ctrl-C

/// Whether something can be read within so many milliseconds, or never any more.
bool Says(int terminal, int milliseconds) {
    pollfd output{terminal, POLLIN, 0};
    return poll(&output, 1, milliseconds) != 0;
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
        // A key that interrupts has no effect between the question and libcrypto's read; who sees nothing
        // happen presses it again.
        do {
            if (write(terminal, typed->data(), typed->size()) < 0)
                ADD_FAILURE() << "the terminal takes no input";
        } while (typed == kInterrupt && !Says(terminal, 5'000));
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
    EXPECT_THAT(run.output, HasSubstr("unknown option '--jsno'"));
}

TEST_F(ToolTest, Help_NamesEveryOption) {
    const Outcome run = Tool("--help");
    EXPECT_EQ(run.status, 0);
    for (const char* option : {"--json", "--all", "--login", "--verbose", "--log", "--help"})
        EXPECT_THAT(run.output, HasSubstr(option)) << option;
}

TEST_F(ToolTest, WithoutModules_NoneCanSign) {
    const Json report = Report();
    EXPECT_EQ(status, 1);
    EXPECT_EQ(report.at("canSign"), 0);
    for (const Json& module :
         report.at("modules")) // the machine's own, which this user's configuration leaves out
        EXPECT_FALSE(module.at("used")) << module;
    EXPECT_THAT(Tool("").output, HasSubstr("0 certificates can sign"));
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
    EXPECT_THAT(text.output, HasSubstr("shows after login (--login)"));
    EXPECT_THAT(text.output, HasSubstr("1 certificate can sign"));
}

TEST_F(ToolTest, Login_AsksOnTheTerminalAndShowsThePrivateKey) {
    AddFile("works");
    const Outcome run = Tool("--login", "1234\n");
    EXPECT_EQ(run.status, 0);
    EXPECT_THAT(run.output, HasSubstr("PIN of \"Fake Token\""));
    EXPECT_THAT(run.output, HasSubstr("login: logged in"));
    EXPECT_THAT(run.output, Not(HasSubstr("shows after login")));
    EXPECT_THAT(run.output, Not(HasSubstr("1234"))) << "the PIN is to be seen";
}

TEST_F(ToolTest, NothingTyped_IsNoLogin) {
    AddFile("pin-locked");
    const Outcome run = Tool("--login", "\n");
    EXPECT_THAT(run.output, Not(HasSubstr("login: ")));
    EXPECT_THAT(run.output, HasSubstr("its PIN: locked"));
}

struct LoginCase {
    const char* name;
    const char* fake;
    std::optional<std::string> typed; ///< none: there is no terminal
    int status;
    const char* told;
};

void PrintTo(const LoginCase& it, std::ostream* out) { *out << it.name; }

class ToolLogin : public ToolTest, public testing::WithParamInterface<LoginCase> {};

TEST_P(ToolLogin, IsTold) {
    AddFile(GetParam().fake);
    const Outcome run = Tool("--login", GetParam().typed);
    EXPECT_EQ(run.status, GetParam().status);
    EXPECT_THAT(run.output, HasSubstr(GetParam().told));
}

INSTANTIATE_TEST_SUITE_P(
    , ToolLogin,
    testing::Values(LoginCase{"WithAWrongPin_InWords", "works", "4321\n", 3,
                              "The password or PIN is incorrect (CKR_PIN_INCORRECT)"},
                    LoginCase{"AtTheEndOfInput_AsAnError", "works", "\x04", 2, "no PIN was read"},
                    LoginCase{"WithoutATerminal_AsAnError", "works", std::nullopt, 2, "no terminal"},
                    LoginCase{"WithoutAPrivateKey", "lacks-private-keys", "1234\n", 1,
                              "because: no private key with its id"},
                    LoginCase{"WithTheKeyOfAnotherCertificate", "has-a-foreign-key-with-its-id", "1234\n", 1,
                              "belongs to another certificate"}),
    [](const auto& it) { return it.param.name; });

TEST_F(ToolTest, CtrlCAtTheQuestion_EndsItAndLeavesTheTerminalAsItWas) {
    AddFile("works");
    const std::string tool = std::string("'") + QM_TOKENS_TOOL + "' --login";
    const Outcome run = RunCommand("trap : INT; " + tool + "; echo status $?; stty -a", kInterrupt);
    EXPECT_THAT(run.output, HasSubstr("status 130"));
    EXPECT_THAT(run.output, HasSubstr(" echo "));
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
    EXPECT_THAT(text.output, HasSubstr("the first in the window"));
}

TEST_F(ToolTest, TheFirstInTheWindow_IsMarkedAlsoWhereTheLoginShowsThatItHasNoKey) {
    AddFile("lacks-private-keys");
    const Outcome run = Tool("--login", "1234\n");
    EXPECT_THAT(run.output, HasSubstr("not offered: CN=Fake User"));
    EXPECT_THAT(run.output, HasSubstr("the first in the window, which is filled before the login"));
    EXPECT_THAT(Tool("").output, HasSubstr("the first in the window\r\n"));
}

TEST_F(ToolTest, OneTokenThroughTwoModules_IsOfferedOnce) {
    SoftToken(home).Store("\x01");
    fs::copy_file(QM_SOFTHSM2, home.Folder() / "copy.so");
    home.AddModule("zz-copy", home.Folder() / "copy.so");
    const Json report = Report();
    EXPECT_EQ(report.at("canSign"), 1);
    std::vector<std::string> reasons;
    for (const Json& module : report.at("modules"))
        if (module.at("used"))
            reasons.push_back(module.at("slots").at(0).at("token").value("reason", ""));
    EXPECT_EQ(reasons, (std::vector<std::string>{"", "it is offered by the module softhsm2"}));
    EXPECT_THAT(Tool("--login", "1234\n").output, HasSubstr("1 certificate can sign"));
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
    EXPECT_THAT(run.output,
                HasSubstr("list: left out: id 04 on the token \"Fake Token\" (serial number 0001), "
                          "key usage: not for signatures"));
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
    EXPECT_THAT(reasons.at("is-not-there"), HasSubstr("is-not-there.so"));
    EXPECT_EQ(reasons.at("disabled"), "not enabled for QMTokenDriver, or not read for this user");
}

TEST_F(ToolTest, WithNoFolderToWriteTo_EveryModuleIsToldThatItMayBeTheOneThatCrashes) {
    const NoFolderToWriteTo nowhere;
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
    SoftToken(home).Store("\x01");
    const Outcome run = Tool("--login", "1234\n");
    EXPECT_THAT(run.output, HasSubstr("token \"Soft Token\", SoftHSM v2"));
    EXPECT_THAT(run.output, HasSubstr("login: logged in"));
    EXPECT_THAT(run.output, HasSubstr("not offered: token not initialised"));
}

TEST_F(ToolTest, WhatModulesWrite_IsNotInTheReport_NorOnStandardErrorUnlessItIsAskedFor) {
    for (const char* fake : {"writes-to-stdout", "writes-to-stdout-at-exit", "writes-to-stderr"})
        AddFile(fake);
    for (const char* arguments : {"--json", "--json --verbose 2>/dev/null"}) {
        const Json report = Report(arguments);
        ASSERT_TRUE(report.is_object()) << "no JSON";
        EXPECT_NE(report.at("canSign"), 0);
        EXPECT_EQ(status, 0);
    }
    const std::string heard = Tool("--verbose 2>&1 >/dev/null").output;
    for (const char* words : {"module: hello", "module: goodbye", "module: complains"})
        EXPECT_THAT(heard, HasSubstr(words));
    EXPECT_THAT(heard, Not(HasSubstr("can sign")));
}

TEST_F(ToolTest, ControlCharactersOfATokensLabel_DoNotReachTheTerminal) {
    AddFile("label-with-an-escape");
    for (const Outcome& run : {Tool(""), Tool("--login", "1234\n")})
        EXPECT_EQ(run.output.find('\x1b'), std::string::npos) << run.output;
}
