#pragma once

#include <string>
#include <vector>

/// The certificates that the system trusts, in DER. Empty when package ca-certificates is not there.
std::vector<std::string> SystemCertificates();

/// A certificate of each odd kind that the tests know.
std::vector<std::string> OddCertificates();
