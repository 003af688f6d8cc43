#pragma once

// Private to ck/: the texts in a certificate's names.

#include "OpenSsl.h"

#include <string>

struct AsnNode;

/// `value` as UTF-8 up to its first zero byte; empty when it is of no string type.
std::string CStringOf(const ASN1_STRING* value);

/// The first attribute `nid` of `name` as CStringOf has it; empty when there is none, or no name.
std::string FirstAttribute(const X509_NAME* name, int nid);

/// `name` in one text, as CkCert::subjectDN describes it; empty when there is no name.
std::string DistinguishedName(const X509_NAME* name);

/// The DER of the certificate `tree` with the strings in its issuer and subject turned into valid
/// UTF8Strings. libcrypto loads no certificate with a string in a name that is not what its type says, though
/// makers of certificates have written such. Empty when `tree` is no certificate.
std::string WithReadableNames(AsnNode& tree);
