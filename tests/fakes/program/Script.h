#pragma once

#include <nlohmann/json.hpp>
#include <openssl/evp.h>
#include <p11-kit/pkcs11.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

struct EvpDeleter {
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
    void operator()(EVP_PKEY_CTX* context) const { EVP_PKEY_CTX_free(context); }
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};
template <typename T>
using EvpPtr = std::unique_ptr<T, EvpDeleter>;

/// One object of the token. `key` is null for certificates, `value` is empty for keys.
struct TokenObject {
    CK_OBJECT_CLASS objectClass;
    std::string id;
    std::string value;
    EvpPtr<EVP_PKEY> key;
};

/// What goes wrong in one call: README.md says how each member works.
struct Fault {
    std::optional<CK_RV> returnValue;
    nlohmann::json out = nlohmann::json::object();
    unsigned delayMilliseconds = 0;
    bool throws = false;

    /// Overwrites `target` when the script names `member`.
    void Overwrite(const char* member, CK_ULONG& target) const;
};

/// What the module is to be, read from "fake-pkcs11.json" in the working directory.
struct Script {
    std::vector<CK_SLOT_ID> slots;
    std::string pin;
    std::string pinSha256;
    unsigned pinTries = 3;
    bool strict = false;
    bool forgiving = false;
    std::vector<TokenObject> objects;
    nlohmann::json faults = nlohmann::json::array();

    /// Throws std::runtime_error (or the JSON library's exception) when the script or a file that it names is
    /// unusable.
    static Script Load();

    /// Takes "fake-pkcs11-faults.json" away when it is there: its faults are those of the script from now on.
    /// Throws as Load.
    bool TakeNewFaults();

    /// The fault of the `nth` call (from 1) of the entry point `call`; an empty one when nothing is to go
    /// wrong.
    Fault FaultOf(const std::string& call, unsigned nth) const;
};
