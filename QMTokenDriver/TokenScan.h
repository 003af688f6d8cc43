#pragma once

#include "Backends.h"

#include <p11-kit/pkcs11.h>

#include <string>
#include <vector>

/// What is plugged in: the tokens in the slots of all modules, and which of them can sign.

namespace tokendriver {

/// PKCS#11's label, serial number, model and manufacturer, padding removed. Two tokens may agree in all of
/// them.
struct TokenIdentity {
    std::string label;
    std::string serialNumber;
    std::string model;
    std::string manufacturer;

    bool operator==(const TokenIdentity&) const = default;
};

/// The signing mechanisms that the driver cares for, as the token offers them.
struct SigningMechanisms {
    std::vector<CK_MECHANISM_TYPE> offered;

    bool Has(CK_MECHANISM_TYPE mechanism) const;
};

/// Whether a token can be used, and why not.
enum class TokenVerdict { CanSign, NotInitialised, CannotSignWithRsa, NotReadable };

/// A token in a slot of a module, as it was when it was looked at.
struct SeenToken {
    const Backend* backend; ///< never null
    CK_SLOT_ID slot;        ///< the module's own
    CK_SLOT_INFO slotInfo;
    CK_TOKEN_INFO tokenInfo;
    TokenIdentity identity;
    SigningMechanisms mechanisms;
    TokenVerdict verdict;
    CK_RV failure; ///< the module's answer when NotReadable, else CKR_OK
};

/// Text of a space-padded field of PKCS#11 without its padding; also ends at a zero byte, which some modules
/// put there.
std::string PaddedText(const CK_UTF8CHAR* field, std::size_t length);

TokenIdentity IdentityOf(const CK_TOKEN_INFO& info);

/// Looks at one token. Asks its module for all; a failure becomes the verdict.
SeenToken LookAtToken(const Backend& backend, CK_SLOT_ID slot);

/// Why no certificate of this token is offered, in words; empty when some may be.
std::string ObjectionTo(const SeenToken& token);

/// The module's slots, with a token in them (`tokenPresent`) or all. A module that fails has none; `failure`,
/// when not null, receives its answer.
std::vector<CK_SLOT_ID> SlotsOf(const Backend& backend, bool tokenPresent, CK_RV* failure = nullptr);

/// All tokens in the modules' order, whatever their verdict.
std::vector<SeenToken> ScanTokens(const std::vector<Backend>& modules);

/// Those that can sign, hardware before software, else in the order given.
std::vector<SeenToken> TokensThatCanSign(std::vector<SeenToken> all);

} // namespace tokendriver
