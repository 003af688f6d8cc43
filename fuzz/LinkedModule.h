#pragma once

#include <p11-kit/pkcs11.h>

#include <functional>
#include <string>
#include <vector>

/// The PKCS#11 module of a fuzz target, a fake token whose answers the target decides. Its entry points are
/// linked into the executable, where the host finds them, for dlopen("") is the program itself. Every
/// certificate has a private key of the same CKA_ID; a signature is made up out of what is signed.
struct LinkedModule {
    struct Certificate {
        std::string id;
        std::string der;
    };

    std::vector<Certificate> certificates;

    /// Decides the answer of each call, given the right one.
    std::function<CK_RV(CK_RV)> answer = [](CK_RV right) { return right; };
    /// Decides each number that a call reports (lengths, counts, handles), given the right one.
    std::function<CK_ULONG(CK_ULONG)> number = [](CK_ULONG right) { return right; };

    /// What C_Sign was last given to sign, and what it answered.
    std::string signedBytes;
    std::string signature;

    /// Makes it the token of the host, with nothing known of it yet and a PIN at hand, so that no dialog asks
    /// for one.
    void PlugIn();
};

extern LinkedModule linkedModule;
