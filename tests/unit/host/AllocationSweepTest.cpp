// The n-th allocation of a request fails, for every n until none does: one reply or the end of the host,
// never half a request, never a crash, and the next request is served.

#include "FailingAllocations.h"
#include "MainSelectCertificate.h"
#include "QMNativeMessagingHost.h"
#include "ScriptedToken.h"

#include <sys/wait.h>
#include <unistd.h>
#include <wx/frame.h>

#include <cstdint>
#include <cstdio>
#include <iostream>
#include <map>

namespace {

void Reopen(const char* file, std::FILE* stream) {
    if (!std::freopen(file, "wb", stream))
        std::abort();
}

/// What the browser sends. Behind its end nothing fails: that is no request any more.
ssize_t ReadInput(void* input, char* buffer, std::size_t size) {
    auto& rest = *static_cast<std::string_view*>(input);
    if (rest.empty())
        FailingAllocation::Stop();
    const std::size_t count = rest.copy(buffer, size);
    rest.remove_prefix(count);
    return static_cast<ssize_t>(count);
}

/// A window without a display, for the loop to close.
class NoWindow : public wxFrame {
public:
    bool Destroy() override { return true; }
};

/// The status is 1 when an allocation has failed.
[[noreturn]] void ServeAndExit(std::size_t n) noexcept {
    SelCertFrame = new NoWindow;
    const FailingAllocation failing(n);
    msgHost.CheckForInwordMsgFromBrowser();
    std::_Exit(FailingAllocation::Happened() ? 1 : 0);
}

std::vector<nlohmann::json> Replies(std::string_view bytes) {
    std::vector<nlohmann::json> replies;
    while (bytes.size() >= 4) {
        std::uint32_t size = 0;
        std::memcpy(&size, bytes.data(), sizeof size);
        replies.push_back(nlohmann::json::parse(bytes.substr(4, size)));
        bytes.remove_prefix(4 + size);
    }
    EXPECT_TRUE(bytes.empty()) << "half a frame";
    return replies;
}

struct Case {
    const char* name;
    nlohmann::json request;
    int status = 1;
    bool isListed = false; ///< the certificates were read at an earlier request
};

void PrintTo(const Case& it, std::ostream* out) { *out << it.name; }

class AllocationSweep : public ScriptedToken, public ::testing::WithParamInterface<Case> {
protected:
    AllocationSweep() {
        script["objects"][0]["id"] = script["objects"][1]["id"] = "61626364"; // "abcd", also Base64
        LoadModule();
        tokenManager.TokenUserPin = "1234";
        request_ = GetParam().request;
        if (GetParam().isListed) {
            tokenManager.TokenOpenSession();
            tokenManager.BuildTokenCertList();
            request_["certThumbPrint"] = tokenManager.TokenCertList.ObjectAt(0)->stringOf("CertThumbPrint");
        }
    }

    /// Runs the request loop over the request and one more, in a process of its own. Its wait status.
    int Serve(std::size_t n) {
        std::filesystem::remove("QMSignerExtHostLog.txt");
        const std::string frames = FrameOf(request_.dump()) + FrameOf(R"({"text":"served","nonce":"next"})");
        input_ = frames;
        const pid_t child = fork();
        if (child == 0) {
            Reopen("out", stdout);
            Reopen("errors", stderr);
            std::setvbuf(stderr, nullptr, _IONBF, 0);
            stdin = fopencookie(&input_, "rb", {ReadInput, nullptr, nullptr, nullptr});
            ServeAndExit(n);
        }
        int status = 0;
        waitpid(child, &status, 0);
        return status;
    }

    /// In one word, what came of it; fails for what must not come.
    std::string Outcome(std::size_t n) {
        const std::vector<nlohmann::json> replies = Replies(ReadFile("out"));
        const auto isNext = [](const nlohmann::json& reply) {
            return reply == nlohmann::json::parse(
                                R"({"status_cd":0,"result":"QMHost Error: echo: served","nonce":"next"})");
        };
        const bool isReadingFailed = HasLogged("Error  in ReadStdin(): std::bad_alloc");
        const bool isReplyFailed = HasLogged("Error  in ReturnResult(): std::bad_alloc");
        if (replies.empty() && isReadingFailed)
            return "no reply, the end: ReadStdin";
        if (replies.size() == 1 && isNext(replies[0]) && isReplyFailed)
            return "no reply, the next is served: ReturnResult";
        if (replies.size() == 1 && replies[0].at("nonce") == "n" && (isReadingFailed || isReplyFailed))
            return "replied, the next failed";
        EXPECT_EQ(replies.size(), 2U) << n << ": " << ReadFile("out") << Log();
        if (replies.size() != 2)
            return "?";
        const std::string& text = replies[0].at("result").get_ref<const std::string&>();
        if (replies[0].at("nonce") == "") {
            EXPECT_EQ(text, "QMHost Error: echo: ") << n << ": half a request was served";
            return "replied as to a text that is none";
        }
        EXPECT_EQ(replies[0].at("nonce"), "n") << n;
        if (!isNext(replies[1])) {
            EXPECT_EQ(replies[1].at("status_cd"), 0) << n;
            EXPECT_EQ(replies[0].at("result"), expected_) << n;
            return "replied, the next failed";
        }
        if (replies[0].at("status_cd") == 1) {
            EXPECT_TRUE(IsWhole(text)) << n << ": " << text;
            return "replied as ever";
        }
        EXPECT_EQ(text.substr(0, 14), "QMHost Error: ") << n;
        return text == expected_ ? "replied as ever" : "replied: failed, in words";
    }

    /// Whether a successful result is all that it has to be: that of the undisturbed request.
    bool IsWhole(const std::string& result) const { return result == expected_; }

    nlohmann::json request_;
    std::string_view input_;
    std::string expected_;
};

TEST_P(AllocationSweep, EveryRequestIsAnsweredOrTheEndIsTold) {
    ASSERT_EQ(Serve(0), 0) << ReadFile("errors");
    const std::vector<nlohmann::json> undisturbed = Replies(ReadFile("out"));
    ASSERT_EQ(undisturbed.size(), 2U);
    ASSERT_EQ(undisturbed[0].at("status_cd"), GetParam().status) << undisturbed[0];
    expected_ = undisturbed[0].at("result");

    std::map<std::string, int> table;
    std::size_t n = 1;
    for (;; ++n) {
        const int status = Serve(n);
        if (status == 0)
            break;
        ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 1)
            << "allocation " << n << ": status " << status << "\n"
            << ReadFile("errors") << Log();
        ++table[Outcome(n)];
    }
    std::cout << GetParam().name << ": " << n - 1 << " allocations\n";
    for (const auto& [outcome, count] : table)
        std::cout << "  " << count << " " << outcome << "\n";
}

using Choice = ScriptedToken;

TEST_F(Choice, ThatIsInNoRecordIsNotFound) {
    OpenToken();
    tokenManager.BuildTokenCertList();
    selCKA_ID = "stranger";
    const OperationResult result = msgHost.GetSelCertFromToken();
    selCKA_ID.clear();
    EXPECT_FALSE(result.success);
    EXPECT_EQ(result.text, "GetSelCertFromToken - Selected Key ID Not Found in Certificates List: stranger");
}

using Handlers = HostFixture;

TEST_F(Handlers, GetNoExceptionFromFailure) {
    const std::runtime_error reason("a reason");
    std::size_t withoutText = 0;
    for (std::size_t n = 1;; ++n) {
        OperationResult result{true, ""};
        {
            const FailingAllocation failing(n);
            ASSERT_NO_THROW(result = Failure("AnOperationWithALongName", reason));
        }
        EXPECT_FALSE(result.success);
        if (!FailingAllocation::Happened())
            break;
        withoutText += result.text.empty();
    }
    EXPECT_GT(withoutText, 0U);
}

using Settings = HostFixture;

TEST_F(Settings, AFailedAllocationLeavesWhatWasAppliedAndTellsTheReasonAlone) {
    WriteFile("QMHostSettings.json",
              R"({"AppLogLevel": 2, "TokenDriverFullPath": "/a/path/that/is/long/enough/for/the/heap.so"})");
    int told = 0;
    for (std::size_t n = 1;; ++n) {
        std::filesystem::remove("QMSignerExtHostLog.txt");
        {
            const FailingAllocation failing(n);
            LoadQMHostSettings();
        }
        if (!FailingAllocation::Happened())
            break;
        told += Log().ends_with(" std::bad_alloc\n");
    }
    EXPECT_GT(told, 3);
    EXPECT_EQ(TokenDriverFullPath, "/a/path/that/is/long/enough/for/the/heap.so");
}

const std::string kDigest = "ERERERERERERERERERERERERERERERERERERERERERE="; // 32 times 0x11

INSTANTIATE_TEST_SUITE_P(
    Of, AllocationSweep,
    ::testing::Values(
        Case{"echo", {{"text", "a text"}, {"nonce", "n"}}, 0},
        Case{"choice", {{"action", "GetSelCertFromToken"}, {"nonce", "n"}}},
        Case{"gst",
             {{"action", "GSTReturnSign"}, {"hash", "a text"}, {"hashAlgorithm", "SHA-512"}, {"nonce", "n"}}},
        Case{"it", {{"action", "ITReturnSign"}, {"hash", "abcd"}, {"nonce", "n"}}},
        Case{"pdf", {{"action", "PdfSignFromToken"}, {"hash", kDigest}, {"nonce", "n"}}, 1, true},
        Case{"token", {{"action", "SignAuthToken"}, {"authToken", "a text"}, {"nonce", "n"}}}),
    [](const auto& it) { return it.param.name; });

} // namespace
