// A bare loop on a PKCS#11 module. Each frame, "sign" or "list", is answered with the nanoseconds that it
// took and what came out: {"ns":…,"signature":"<hex>"} or {"ns":…,"count":…}.
//
//   reference-token <module> <pin> <CKA_ID in hex> <data to sign in hex>

#include "Clock.h"
#include "Frames.h"
#include "Token.h"
#include "support/Bytes.h"

#include <exception>

int main(int argc, char** argv) try {
    if (argc != 5)
        return 2;
    ReferenceToken token(argv[1]);
    token.Login(CKU_USER, argv[2]);
    const std::string id = FromHex(argv[3]);
    const std::string data = FromHex(argv[4]);
    std::string message;
    while (ReadFrame(message)) {
        const bool list = message == R"("list")";
        const long long begin = NowNanoseconds();
        const std::string result = list ? R"("count":)" + std::to_string(token.Certificates().size())
                                        : R"("signature":")" + ToHex(token.FindKeyAndSign(id, data)) + '"';
        const long long end = NowNanoseconds();
        WriteFrame("{\"ns\":" + std::to_string(end - begin) + "," + result + "}");
    }
    return 0;
} catch (const std::exception& e) {
    std::fprintf(stderr, "reference-token: %s\n", e.what());
    return 1;
}
