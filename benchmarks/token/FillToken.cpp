// Fills an initialised token: certificates for one RSA 2048 key, all valid and all meant to sign, and that
// key once for each. The first certificate is written to a PEM file as well. The CKA_ID of the n-th is n,
// counted from 1, in 20 bytes.
//
//   bench-fill-token <module> <pin> <number of certificates> <PEM file>

#include "../reference/Token.h"
#include "support/Certificates.h"
#include "support/ScratchFolder.h"
#include "support/TokenObjects.h"

#include <cstdlib>

namespace {

std::string BigEndian(int number, std::size_t size) {
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < sizeof number; ++i)
        bytes[size - 1 - i] = static_cast<char>(number >> (8 * i));
    return bytes;
}

std::string CertificateDer(EVP_PKEY* key, int number) {
    return CertificateOrder{.subject = {{"C", "IN", V_ASN1_PRINTABLESTRING},
                                        {"O", "Quillmark Benchmark"},
                                        {"CN", "Signer " + std::to_string(number)}},
                            .serial = BigEndian(0x51000000 + number, 4),
                            .notBefore = "200101000000Z",
                            .notAfter = "20991231235959Z",
                            .extensions = {Configured("basicConstraints", "critical,CA:FALSE"),
                                           Configured("keyUsage", "critical,digitalSignature,nonRepudiation"),
                                           Configured("subjectAltName", "email:signer@example.com")},
                            .ownKey = key}
        .der();
}

void Create(ReferenceToken& token, TokenObject object) { token.Create(TemplateOf(object)); }

} // namespace

int main(int argc, char** argv) try {
    if (argc != 5)
        return 2;
    ReferenceToken token(argv[1]);
    token.Login(CKU_USER, argv[2]);
    const Owned<EVP_PKEY> key(EVP_RSA_gen(2048));
    const int count = std::atoi(argv[3]);
    for (int number = 1; number <= count; ++number) {
        const std::string der = CertificateDer(key.get(), number);
        Create(token, CertificateObject(BigEndian(number, 20), der));
        Create(token, PrivateKeyObject(BigEndian(number, 20), key.get()));
        if (number == 1)
            WriteFile(argv[4], CertificatePem(der));
    }
    return 0;
} catch (const std::exception& e) {
    std::fprintf(stderr, "bench-fill-token: %s\n", e.what());
    return 1;
}
