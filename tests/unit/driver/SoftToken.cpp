#include "SoftToken.h"

#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <dlfcn.h>

#include <array>
#include <cstdlib>
#include <fstream>
#include <stdexcept>

namespace {

using Bytes = std::vector<CK_BYTE>;

void Expect(CK_RV answer, const char* call) {
    if (answer != CKR_OK)
        throw std::runtime_error(std::string(call) + " of SoftHSM answers " + std::to_string(answer));
}

CK_UTF8CHAR* Text(const char* text) { return reinterpret_cast<CK_UTF8CHAR*>(const_cast<char*>(text)); }

constexpr const char* kPin = "1234";
constexpr const char* kLabel = "Soft Token                      "; // padded to 32

struct FreeOpenSsl {
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
    void operator()(X509* certificate) const { X509_free(certificate); }
    void operator()(BIGNUM* number) const { BN_clear_free(number); }
};
template <class Handle>
using Owned = std::unique_ptr<Handle, FreeOpenSsl>;

Bytes Parameter(const EVP_PKEY* key, const char* name) {
    BIGNUM* number = nullptr;
    EVP_PKEY_get_bn_param(key, name, &number);
    const Owned<BIGNUM> owned(number);
    Bytes bytes(static_cast<std::size_t>(BN_num_bytes(number)));
    BN_bn2bin(number, bytes.data());
    return bytes;
}

Bytes SelfSigned(EVP_PKEY* key, X509_NAME*& subject, Owned<X509>& certificate) {
    certificate.reset(X509_new());
    X509_gmtime_adj(X509_getm_notBefore(certificate.get()), 0);
    X509_gmtime_adj(X509_getm_notAfter(certificate.get()), 24L * 3600);
    subject = X509_get_subject_name(certificate.get());
    X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char*>("Soft"),
                               -1, -1, 0);
    X509_set_issuer_name(certificate.get(), subject);
    X509_set_pubkey(certificate.get(), key);
    X509_sign(certificate.get(), key, EVP_sha256());
    Bytes der(static_cast<std::size_t>(i2d_X509(certificate.get(), nullptr)));
    CK_BYTE* at = der.data();
    i2d_X509(certificate.get(), &at);
    return der;
}

} // namespace

SoftToken::SoftToken(const P11KitHome& home) : library_(OpenLibrary(QM_SOFTHSM2)) {
    const std::filesystem::path folder = home.Folder() / "softhsm";
    std::filesystem::create_directories(folder / "tokens");
    std::ofstream(folder / "softhsm2.conf")
        << "directories.tokendir = " << (folder / "tokens").string() << '\n'
        << "log.level = ERROR\n";
    setenv("SOFTHSM2_CONF", (folder / "softhsm2.conf").c_str(), 1);
    home.AddModule("softhsm2", QM_SOFTHSM2);

    const auto getFunctionList =
        reinterpret_cast<CK_C_GetFunctionList>(dlsym(library_.get(), "C_GetFunctionList"));
    Expect(getFunctionList(&module_), "C_GetFunctionList");
    Expect(module_->C_Initialize(nullptr), "C_Initialize");
    CK_SLOT_ID slot = 0;
    CK_ULONG count = 1;
    Expect(module_->C_GetSlotList(CK_TRUE, &slot, &count), "C_GetSlotList");
    Expect(module_->C_InitToken(slot, Text(kPin), 4, Text(kLabel)), "C_InitToken");
    CK_SESSION_HANDLE session = 0;
    Expect(module_->C_OpenSession(Slot(), CKF_SERIAL_SESSION | CKF_RW_SESSION, nullptr, nullptr, &session),
           "C_OpenSession");
    Expect(module_->C_Login(session, CKU_SO, Text(kPin), 4), "C_Login");
    Expect(module_->C_InitPIN(session, Text(kPin), 4), "C_InitPIN");
    Expect(module_->C_Finalize(nullptr), "C_Finalize");
}

CK_SLOT_ID SoftToken::Slot() const {
    // The initialised token comes before the one that SoftHSM always has ready for initialising.
    std::array<CK_SLOT_ID, 2> slots{};
    CK_ULONG count = slots.size();
    Expect(module_->C_GetSlotList(CK_TRUE, slots.data(), &count), "C_GetSlotList");
    return slots[0];
}

CK_SESSION_HANDLE SoftToken::OpenLoggedIn() const {
    CK_SESSION_HANDLE session = 0;
    Expect(module_->C_OpenSession(Slot(), CKF_SERIAL_SESSION | CKF_RW_SESSION, nullptr, nullptr, &session),
           "C_OpenSession");
    Expect(module_->C_Login(session, CKU_USER, Text(kPin), 4), "C_Login");
    return session;
}

void SoftToken::Store(const Bytes& id, bool alwaysAuthenticate) {
    const Owned<EVP_PKEY> key(EVP_RSA_gen(2048));
    X509_NAME* name = nullptr;
    Owned<X509> certificate;
    Bytes der = SelfSigned(key.get(), name, certificate);
    Bytes subject(static_cast<std::size_t>(i2d_X509_NAME(name, nullptr)));
    CK_BYTE* at = subject.data();
    i2d_X509_NAME(name, &at);

    CK_OBJECT_CLASS certificateClass = CKO_CERTIFICATE;
    CK_OBJECT_CLASS keyClass = CKO_PRIVATE_KEY;
    CK_CERTIFICATE_TYPE x509 = CKC_X_509;
    CK_KEY_TYPE rsa = CKK_RSA;
    CK_BBOOL yes = CK_TRUE;
    CK_BBOOL no = CK_FALSE;
    CK_BBOOL always = alwaysAuthenticate ? CK_TRUE : CK_FALSE;
    Bytes rawId = id;
    std::vector<CK_ATTRIBUTE> publicObject = {{CKA_CLASS, &certificateClass, sizeof certificateClass},
                                              {CKA_CERTIFICATE_TYPE, &x509, sizeof x509},
                                              {CKA_TOKEN, &yes, 1},
                                              {CKA_PRIVATE, &no, 1},
                                              {CKA_ID, rawId.data(), rawId.size()},
                                              {CKA_SUBJECT, subject.data(), subject.size()},
                                              {CKA_VALUE, der.data(), der.size()}};
    std::vector<CK_ATTRIBUTE> privateObject = {{CKA_CLASS, &keyClass, sizeof keyClass},
                                               {CKA_KEY_TYPE, &rsa, sizeof rsa},
                                               {CKA_TOKEN, &yes, 1},
                                               {CKA_PRIVATE, &yes, 1},
                                               {CKA_ID, rawId.data(), rawId.size()},
                                               {CKA_SIGN, &yes, 1},
                                               {CKA_ALWAYS_AUTHENTICATE, &always, 1}};

    constexpr std::array<std::pair<CK_ATTRIBUTE_TYPE, const char*>, 8> kParts = {{
        {CKA_MODULUS, OSSL_PKEY_PARAM_RSA_N},
        {CKA_PUBLIC_EXPONENT, OSSL_PKEY_PARAM_RSA_E},
        {CKA_PRIVATE_EXPONENT, OSSL_PKEY_PARAM_RSA_D},
        {CKA_PRIME_1, OSSL_PKEY_PARAM_RSA_FACTOR1},
        {CKA_PRIME_2, OSSL_PKEY_PARAM_RSA_FACTOR2},
        {CKA_EXPONENT_1, OSSL_PKEY_PARAM_RSA_EXPONENT1},
        {CKA_EXPONENT_2, OSSL_PKEY_PARAM_RSA_EXPONENT2},
        {CKA_COEFFICIENT, OSSL_PKEY_PARAM_RSA_COEFFICIENT1},
    }};
    std::array<Bytes, kParts.size()> values;
    for (std::size_t i = 0; i < kParts.size(); ++i) {
        values[i] = Parameter(key.get(), kParts[i].second);
        privateObject.push_back({kParts[i].first, values[i].data(), values[i].size()});
    }

    Expect(module_->C_Initialize(nullptr), "C_Initialize");
    const CK_SESSION_HANDLE session = OpenLoggedIn();
    CK_OBJECT_HANDLE object = 0;
    Expect(module_->C_CreateObject(session, publicObject.data(), publicObject.size(), &object),
           "C_CreateObject");
    Expect(module_->C_CreateObject(session, privateObject.data(), privateObject.size(), &object),
           "C_CreateObject");
    Expect(module_->C_Finalize(nullptr), "C_Finalize");
}
