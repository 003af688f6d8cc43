// Any bytes on standard input: one reply per request, each a frame that holds valid JSON with the three
// members and the request's nonce. The user chooses a certificate whenever he is asked, the token signs.

#include "HostFolder.h"
#include "LinkedModule.h"
#include "QMNativeMessagingHost.h"
#include "ReferenceJson.h"
#include "Require.h"
#include "ck/CkJsonObject.h"
#include "support/Bytes.h"

#include <cstdio>
#include <cstring>
#include <memory>
#include <random>

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t maxSize);

namespace {

/// The token's certificate: CN=Asha Rao, Ed25519, key usage digitalSignature; valid for a hundred years.
/// Requests name it by its thumbprint, 93F0AE3A6E56356E16FAFEB7E828BA748E8E0F65.
constexpr char kCertificate[] =
    "MIIBGjCBzaADAgECAhRXrH82PfaeOF/tgq8aQx5Aejl0aTAFBgMrZXAwEzERMA8GA1UEAwwIQXNoYSBSYW8wIBcNMj"
    "YxMTIxMDIwOTM0WhgPMjEyNjEwMjgwMjA5MzRaMBMxETAPBgNVBAMMCEFzaGEgUmFvMCowBQYDK2VwAyEABe1pn5Mi"
    "DqP9e/CvUIVyg+iJuyTrix9wQ48+PczFvvmjMTAvMA4GA1UdDwEB/wQEAwIHgDAdBgNVHQ4EFgQUlYBAEhk3vy6Ys3"
    "IfSb86PHb+ZIIwBQYDK2VwA0EAX6U4gYvVbzsuhchLsd96Xan+qnaIvt8WiGXy8iIQFRD4vi5DdoX4M8+1KxMvyxow"
    "RrrzaCPAhRmPhjEgCkZNCA==";

constexpr std::size_t kPrefix = 4;

/// Longer messages are shortened on their way: they would only measure the allocator.
constexpr std::int32_t kMaxLength = 1 << 20;

std::int32_t LengthAt(const std::string& bytes, std::size_t at) {
    std::int32_t length = 0;
    std::memcpy(&length, bytes.data() + at, sizeof length);
    return length;
}

/// The bodies of the requests in `input` as the protocol defines them, the last one perhaps cut short.
/// Lengths beyond kMaxLength are reduced in `input`.
std::vector<std::string> TakeApart(std::string& input) {
    std::vector<std::string> bodies;
    for (std::size_t at = 0; input.size() - at >= kPrefix;) {
        std::int32_t length = LengthAt(input, at);
        if (length <= 0)
            break;
        length = (length - 1) % kMaxLength + 1;
        std::memcpy(input.data() + at, &length, sizeof length);
        bodies.push_back(input.substr(at + kPrefix, static_cast<std::size_t>(length)));
        at += kPrefix + bodies.back().size();
    }
    return bodies;
}

/// What the host writes to standard output while it serves `input` from standard input.
std::string Serve(std::string& input) {
    std::FILE* const in = stdin;
    std::FILE* const out = stdout;
    char* written = nullptr;
    std::size_t size = 0;
    stdin = fmemopen(input.data(), input.size(), "r");
    stdout = open_memstream(&written, &size);
    QMNativeMessagingHost host;
    while (const std::unique_ptr<CkJsonObject> request{host.ReadStdin()}) {
        const std::string nonce = request->stringOf("nonce");
        host.ReturnResult(host.ProcessInMessage(request.get()), nonce);
    }
    std::fclose(stdin);
    std::fclose(stdout);
    stdin = in;
    stdout = out;
    std::string replies(written, size);
    std::free(written);
    return replies;
}

void CheckReply(const std::string& request, const std::string& text) {
    const auto reply = MembersOf(text);
    Require(reply && reply->size() == 3, "a reply is an object of three members");
    const auto& [status, result, nonce] = std::tie((*reply)[0], (*reply)[1], (*reply)[2]);
    Require(status.name == "status_cd" && (status.value == 0 || status.value == 1), "the status");
    Require(result.name == "result" && result.value.is_string(), "the result");
    Require(status.value == 1 || result.value.get<std::string>().starts_with("QMHost Error: "),
            "a failure says so");

    const auto members = MembersOf(UpToZero(request));
    const nlohmann::json* asked = members ? FirstOf(*members, "nonce") : nullptr;
    Require(nonce.name == "nonce" && nonce.value.is_string(), "the nonce");
    if (!asked)
        Require(nonce.value == "", "without a nonce it is empty");
    else if (asked->is_string())
        Require(nonce.value == UpToZero(asked->get<std::string>()), "the nonce comes back");
    const nlohmann::json* action = members ? FirstOf(*members, "action") : nullptr;
    if (!action)
        Require(result.value.get<std::string>().starts_with("QMHost Error: echo: "), "no action, an echo");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    EnterHostFolder();
    linkedModule.certificates = {{"01", FromBase64(kCertificate)}};
    linkedModule.PlugIn();
    std::string input(data, data + size);
    const std::vector<std::string> requests = TakeApart(input);
    std::string output = Serve(input);
    const std::vector<std::string> replies = TakeApart(output);
    Require(requests.size() == replies.size(), "each request has its reply");
    std::string frames;
    for (std::size_t i = 0; i < replies.size(); ++i) {
        CheckReply(requests[i], replies[i]);
        frames += FrameOf(replies[i]);
    }
    Require(frames == output, "there is nothing but replies");
    return 0;
}

/// Mutates one body and puts the frames together anew; every fourth time the bytes as they are.
extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maxSize,
                                               unsigned seed) {
    std::minstd_rand random(seed);
    std::string input(data, data + size);
    std::vector<std::string> bodies = TakeApart(input);
    if (bodies.empty() || random() % 4 == 0)
        return LLVMFuzzerMutate(data, size, maxSize);
    std::string& body = bodies[random() % bodies.size()];
    const std::size_t before = body.size();
    body.resize(before + 256);
    body.resize(LLVMFuzzerMutate(reinterpret_cast<std::uint8_t*>(body.data()), before, body.size()));
    if (random() % 8 == 0)
        bodies.push_back(body);
    std::string frames;
    for (const std::string& each : bodies)
        frames += FrameOf(each);
    frames.resize(std::min(frames.size(), maxSize));
    std::memcpy(data, frames.data(), frames.size());
    return frames.size();
}
