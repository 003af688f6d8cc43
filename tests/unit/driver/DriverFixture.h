#pragma once

#include "FakeTokenState.h"
#include "P11KitHome.h"
#include "support/Verify.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <p11-kit/pkcs11.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

struct CloseLibrary {
    void operator()(void* library) const;
};
using Library = std::unique_ptr<void, CloseLibrary>;

/// Opens a shared object; fails the test when it cannot be had.
Library OpenLibrary(const std::string& path);

/// The entry points of a PKCS#11 module as the host uses it: resolved by name.
struct EntryPoints {
    explicit EntryPoints(void* library);

    CK_C_Initialize Initialize;
    CK_C_Finalize Finalize;
    CK_C_GetSlotList GetSlotList;
    CK_C_OpenSession OpenSession;
    CK_C_Login Login;
    CK_C_GetAttributeValue GetAttributeValue;
    CK_C_FindObjectsInit FindObjectsInit;
    CK_C_FindObjects FindObjects;
    CK_C_FindObjectsFinal FindObjectsFinal;
    CK_C_SignInit SignInit;
    CK_C_Sign Sign;
    CK_C_SignFinal SignFinal;
};

/// A certificate as the host lists it.
struct ListedCertificate {
    CK_OBJECT_HANDLE handle;
    std::string der;
    std::string idText;
};

/// The driver, loaded from its file as the host does it, over the modules that a test adds.
class DriverFixture : public testing::Test {
protected:
    /// Adds the fake module of this name to p11-kit's configuration and hands out its token.
    FakeTokenState& AddFake(const std::string& name, const std::string& more = {});

    /// Loads and initialises the driver. Before it nothing of the driver is in the process.
    void Start();

    // What the host does, with its template lengths, orders and flags. They fail the test on any answer but
    // CKR_OK.
    std::vector<CK_SLOT_ID> Slots();
    void OpenFirstToken();
    std::vector<ListedCertificate> ListCertificates();
    void Login(std::string_view pin = "1234");

    /// The search for a private key by the id's text; 0 when there is none. The search is left active then.
    CK_OBJECT_HANDLE FindKey(const std::string& idText);

    /// C_SignInit and C_Sign. The signature, or nothing: then `answer` says why.
    std::optional<std::string> Sign(CK_MECHANISM_TYPE mechanism, CK_OBJECT_HANDLE with,
                                    std::string_view data);

    /// All of it for the first certificate: `certificates` are listed and its `key` is ready.
    void GetReadyToSign();

    // The same with `key`; CKM_SHA256_RSA_PKCS unless the test is about another mechanism.
    std::optional<std::string> Sign(std::string_view data, CK_MECHANISM_TYPE mechanism = CKM_SHA256_RSA_PKCS);
    CK_RV AnswerToSign(std::string_view data = "text", CK_MECHANISM_TYPE mechanism = CKM_SHA256_RSA_PKCS);

    /// It signs, and libcrypto verifies that with the first certificate.
    void ExpectSigns(std::string_view data, CK_MECHANISM_TYPE mechanism = CKM_SHA256_RSA_PKCS,
                     const char* hash = "SHA256");

    // A fake is the only token.
    FakeTokenState& StartFake(const std::string& name);
    FakeTokenState& OpenFake(const std::string& name);
    FakeTokenState& GetFakeReadyToSign(const std::string& name);

    /// What the driver has noted.
    static std::string Log();

    EntryPoints& Driver() { return *driver_; }

    P11KitHome home;
    CK_SESSION_HANDLE session = 0;
    std::vector<ListedCertificate> certificates;
    CK_OBJECT_HANDLE key = 0;
    CK_RV answer = CKR_OK;

    ~DriverFixture() override;

private:
    std::vector<Library> fakes_; // loaded on the test's account too, so that their state outlives C_Finalize
    Library library_;
    std::optional<EntryPoints> driver_;
};
