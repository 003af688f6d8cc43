#include "DriverFixture.h"

#include "TokenLog.h"

#include <dlfcn.h>

#include <array>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace {

template <class Function>
void Resolve(void* library, const char* name, Function& function) {
    function = reinterpret_cast<Function>(dlsym(library, name));
    if (function == nullptr)
        ADD_FAILURE() << name << " is missing";
}

} // namespace

void CloseLibrary::operator()(void* library) const { dlclose(library); }

Library OpenLibrary(const std::string& path) {
    Library library(dlopen(path.c_str(), RTLD_LAZY));
    if (!library)
        throw std::runtime_error(dlerror());
    return library;
}

EntryPoints::EntryPoints(void* library) {
    Resolve(library, "C_Initialize", Initialize);
    Resolve(library, "C_Finalize", Finalize);
    Resolve(library, "C_GetSlotList", GetSlotList);
    Resolve(library, "C_OpenSession", OpenSession);
    Resolve(library, "C_Login", Login);
    Resolve(library, "C_GetAttributeValue", GetAttributeValue);
    Resolve(library, "C_FindObjectsInit", FindObjectsInit);
    Resolve(library, "C_FindObjects", FindObjects);
    Resolve(library, "C_FindObjectsFinal", FindObjectsFinal);
    Resolve(library, "C_SignInit", SignInit);
    Resolve(library, "C_Sign", Sign);
    Resolve(library, "C_SignFinal", SignFinal);
}

FakeTokenState& DriverFixture::AddFake(const std::string& name, const std::string& more) {
    const std::string path = std::string(QM_DRIVER_FAKES) + "/" + name + ".so";
    home.AddModule(name, path, more);
    fakes_.push_back(OpenLibrary(path));
    const auto make = reinterpret_cast<FakeTokenState* (*)()>(dlsym(fakes_.back().get(), "NewFakeToken"));
    return *make();
}

void DriverFixture::Start() {
    library_ = OpenLibrary(QM_DRIVER);
    driver_.emplace(library_.get());
    ASSERT_EQ(driver_->Initialize(nullptr), CKR_OK);
}

DriverFixture::~DriverFixture() {
    if (driver_)
        driver_->Finalize(nullptr);
}

std::vector<CK_SLOT_ID> DriverFixture::Slots() {
    CK_ULONG count = 0;
    EXPECT_EQ(driver_->GetSlotList(CK_TRUE, nullptr, &count), CKR_OK);
    std::vector<CK_SLOT_ID> slots(count);
    EXPECT_EQ(driver_->GetSlotList(CK_TRUE, slots.data(), &count), CKR_OK);
    slots.resize(count);
    return slots;
}

void DriverFixture::OpenFirstToken() {
    const std::vector<CK_SLOT_ID> slots = Slots();
    ASSERT_FALSE(slots.empty());
    ASSERT_EQ(driver_->OpenSession(slots[0], CKF_SERIAL_SESSION | CKF_RW_SESSION, nullptr, nullptr, &session),
              CKR_OK);
}

std::vector<ListedCertificate> DriverFixture::ListCertificates() {
    CK_ULONG objectClass = CKO_CERTIFICATE;
    CK_ULONG type = CKC_X_509;
    CK_BBOOL onToken = CK_TRUE;
    std::array wanted = {CK_ATTRIBUTE{CKA_CLASS, &objectClass, 4},
                         CK_ATTRIBUTE{CKA_CERTIFICATE_TYPE, &type, 4}, CK_ATTRIBUTE{CKA_TOKEN, &onToken, 1}};
    EXPECT_EQ(driver_->FindObjectsInit(session, wanted.data(), wanted.size()), CKR_OK);
    std::vector<ListedCertificate> listed;
    for (;;) {
        CK_OBJECT_HANDLE object = 0;
        CK_ULONG count = 0;
        EXPECT_EQ(driver_->FindObjects(session, &object, 1, &count), CKR_OK);
        if (count != 1)
            break;
        std::array read = {CK_ATTRIBUTE{CKA_VALUE, nullptr, 0}, CK_ATTRIBUTE{CKA_ID, nullptr, 0}};
        EXPECT_EQ(driver_->GetAttributeValue(session, object, read.data(), read.size()), CKR_OK);
        std::string der(read[0].ulValueLen, '\0');
        std::string id(read[1].ulValueLen, '\0');
        read[0].pValue = der.data();
        read[1].pValue = id.data();
        EXPECT_EQ(driver_->GetAttributeValue(session, object, read.data(), read.size()), CKR_OK);
        listed.push_back({object, der, id.c_str()}); // the host reads the id up to its first zero byte
    }
    EXPECT_EQ(driver_->FindObjectsFinal(session), CKR_OK);
    return listed;
}

void DriverFixture::Login(std::string_view pin) {
    std::string typed(pin);
    EXPECT_EQ(driver_->Login(session, CKU_USER, reinterpret_cast<CK_UTF8CHAR*>(typed.data()), typed.size()),
              CKR_OK);
}

CK_OBJECT_HANDLE DriverFixture::FindKey(const std::string& idText) {
    CK_ULONG objectClass = CKO_PRIVATE_KEY;
    CK_ULONG type = CKK_RSA;
    CK_BBOOL onToken = CK_TRUE;
    std::string id = idText;
    std::array wanted = {CK_ATTRIBUTE{CKA_CLASS, &objectClass, 4}, CK_ATTRIBUTE{CKA_KEY_TYPE, &type, 4},
                         CK_ATTRIBUTE{CKA_TOKEN, &onToken, 1},
                         CK_ATTRIBUTE{CKA_ID, id.data(), id.size() + 1}};
    EXPECT_EQ(driver_->FindObjectsInit(session, wanted.data(), wanted.size()), CKR_OK);
    CK_OBJECT_HANDLE found = 0;
    CK_ULONG count = 0;
    EXPECT_EQ(driver_->FindObjects(session, &found, 1, &count), CKR_OK);
    if (count == 0)
        return 0;
    EXPECT_EQ(driver_->FindObjectsFinal(session), CKR_OK);
    return found;
}

std::optional<std::string> DriverFixture::Sign(CK_MECHANISM_TYPE mechanism, CK_OBJECT_HANDLE with,
                                               std::string_view data) {
    CK_MECHANISM how{mechanism, nullptr, 0};
    answer = driver_->SignInit(session, &how, with);
    if (answer != CKR_OK)
        return std::nullopt;
    std::string content(data);
    std::string signature(1024, '\0');
    CK_ULONG length = signature.size();
    answer = driver_->Sign(session, reinterpret_cast<CK_BYTE*>(content.data()), content.size(),
                           reinterpret_cast<CK_BYTE*>(signature.data()), &length);
    if (answer != CKR_OK)
        return std::nullopt;
    signature.resize(length);
    return signature;
}

std::string DriverFixture::Log() {
    std::ostringstream text;
    text << std::ifstream(tokendriver::TokenLogPath()).rdbuf();
    return text.str();
}

FakeTokenState& DriverFixture::StartFake(const std::string& name) {
    FakeTokenState& token = AddFake(name);
    Start();
    return token;
}

FakeTokenState& DriverFixture::OpenFake(const std::string& name) {
    FakeTokenState& token = StartFake(name);
    OpenFirstToken();
    return token;
}

FakeTokenState& DriverFixture::GetFakeReadyToSign(const std::string& name) {
    FakeTokenState& token = AddFake(name);
    GetReadyToSign();
    return token;
}

void DriverFixture::GetReadyToSign() {
    Start();
    OpenFirstToken();
    certificates = ListCertificates();
    if (certificates.empty())
        throw std::runtime_error("no certificate on the token");
    Login();
    key = FindKey(certificates[0].idText);
    EXPECT_NE(key, 0U);
}

std::optional<std::string> DriverFixture::Sign(std::string_view data, CK_MECHANISM_TYPE mechanism) {
    return Sign(mechanism, key, data);
}

CK_RV DriverFixture::AnswerToSign(std::string_view data, CK_MECHANISM_TYPE mechanism) {
    Sign(data, mechanism);
    return answer;
}

void DriverFixture::ExpectSigns(std::string_view data, CK_MECHANISM_TYPE mechanism, const char* hash) {
    const std::optional<std::string> signature = Sign(data, mechanism);
    ASSERT_TRUE(signature) << hash << " answers " << std::hex << answer;
    EXPECT_TRUE(Verifies(certificates[0].der, hash, data, *signature)) << hash;
}
