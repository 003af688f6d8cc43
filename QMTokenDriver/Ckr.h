#pragma once

#include <p11-kit/pkcs11.h>

#include <string>

namespace tokendriver {

/// A PKCS#11 answer for people: "The password or PIN is locked (CKR_PIN_LOCKED)". A code that the standard
/// does not name is given in hex.
std::string DescribeAnswer(CK_RV answer);

} // namespace tokendriver
