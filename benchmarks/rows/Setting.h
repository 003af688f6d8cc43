#pragma once

#include "Child.h"

#include <filesystem>
#include <map>
#include <string>

/// A token made for the benchmark: one RSA 2048 key and a number of certificates, see token/FillToken.cpp.
struct TokenFolder {
    /// What a program needs in its environment to see this token and no other.
    std::map<std::string, std::string> env;
    /// PEM file of the first certificate, whose key is on the token.
    std::string signer;
};

/// What is measured, and where.
class Setting {
public:
    /// Reads the JSON file that run.mjs wrote.
    explicit Setting(const std::string& file);

    /// The token with this number of certificates: 1, 10, 100 or 1,000.
    const TokenFolder& Token(int certificates) const { return tokens_.at(certificates); }

    /// A new folder in which the host can run with these contents of "QMHostSettings.json".
    std::string NewHostFolder(int logLevel) const;

    /// A host in a new folder, on a token. "QMChromeExtHost" is the one that is shipped; see the folder host/
    /// for the others.
    Program Host(const std::string& name, int certificates, int logLevel = kInfo) const;

    /// A program of the folder reference/, in a new host folder, on a token.
    Program Reference(const std::string& name, std::vector<std::string> arguments, int certificates) const;

    static constexpr int kDebug = 1;
    static constexpr int kInfo = 2;

    std::string softhsm; ///< path of SoftHSM's module
    std::string driver;  ///< path of the host's own module
    std::string pin;
    std::filesystem::path work; ///< a folder for what comes and goes

private:
    std::filesystem::path bin_, programs_;
    std::map<int, TokenFolder> tokens_;
    mutable int hostFolders_ = 0;
};
