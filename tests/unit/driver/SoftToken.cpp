#include "SoftToken.h"

#include "support/Certificates.h"
#include "support/TokenObjects.h"

#include <dlfcn.h>

#include <array>
#include <cstdlib>
#include <stdexcept>

namespace {

void Expect(CK_RV answer, const char* call) {
    if (answer != CKR_OK)
        throw std::runtime_error(std::string(call) + " of SoftHSM answers " + std::to_string(answer));
}

CK_UTF8CHAR* Text(const char* text) { return reinterpret_cast<CK_UTF8CHAR*>(const_cast<char*>(text)); }

constexpr const char* kPin = "1234";
constexpr const char* kLabel = "Soft Token                      "; // padded to 32

} // namespace

SoftToken::SoftToken(const P11KitHome& home) : library_(OpenLibrary(QM_SOFTHSM2)) {
    const std::filesystem::path folder = home.Folder() / "softhsm";
    std::filesystem::create_directories(folder / "tokens");
    WriteFile(folder / "softhsm2.conf",
              "directories.tokendir = " + (folder / "tokens").string() + "\nlog.level = ERROR\n");
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

void SoftToken::Store(const std::string& id, bool alwaysAuthenticate) {
    const Owned<EVP_PKEY> pair(EVP_RSA_gen(2048));
    CertificateOrder order{.subject = {{"CN", "Soft"}}, .ownKey = pair.get()};
    order.extensions = {Configured("keyUsage", "digitalSignature")};
    TokenObject certificate = CertificateObject(id, order.der());
    TokenObject key = PrivateKeyObject(id, pair.get());
    key[CKA_ALWAYS_AUTHENTICATE] = std::string(1, alwaysAuthenticate ? CK_TRUE : CK_FALSE);

    Expect(module_->C_Initialize(nullptr), "C_Initialize");
    const CK_SESSION_HANDLE session = OpenLoggedIn();
    for (TokenObject* object : {&certificate, &key}) {
        std::vector<CK_ATTRIBUTE> attributes = TemplateOf(*object);
        CK_OBJECT_HANDLE handle = 0;
        Expect(module_->C_CreateObject(session, attributes.data(), attributes.size(), &handle),
               "C_CreateObject");
    }
    Expect(module_->C_Finalize(nullptr), "C_Finalize");
}
