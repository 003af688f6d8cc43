#pragma once

#include "FakeTokenState.h"
#include "P11KitHome.h"

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
    std::optional<std::string> Sign(CK_MECHANISM_TYPE mechanism, CK_OBJECT_HANDLE key, std::string_view data);

    /// All of it for the first certificate: the key is ready.
    CK_OBJECT_HANDLE GetReadyToSign();

    EntryPoints& Driver() { return *driver_; }

    P11KitHome home;
    CK_SESSION_HANDLE session = 0;
    std::vector<ListedCertificate> certificates;
    CK_RV answer = CKR_OK;

    ~DriverFixture() override;

private:
    std::vector<Library> fakes_; // loaded on the test's account too, so that their state outlives C_Finalize
    Library library_;
    std::optional<EntryPoints> driver_;
};

/// Whether `signature` is PKCS#1 v1.5 with this hash ("SHA256") over `data`, by libcrypto and the
/// certificate's key.
bool Verifies(const std::string& certificateDer, const char* hash, std::string_view data,
              const std::string& signature);

/// The bytes that CKM_RSA_PKCS was given when `signature` was made; empty when it is no such signature.
std::string RecoverSigned(const std::string& certificateDer, const std::string& signature);
