#pragma once

#include "HostFixture.h"
#include "TokenManager.h"
#include "support/Bytes.h"
#include "support/Certificates.h"

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

/// The host's token manager on the scripted PKCS#11 module of tests/fakes/program. One key and its
/// certificate, whose CKA_ID is "01"; a test may add more to `script` before it loads the module.
class ScriptedToken : public HostFixture {
protected:
    ScriptedToken() {
        WriteFile("user.der", CertificateOrder{.extensions = ForSigning(), .key = KeyKind::Rsa}.der());
        WriteFile("user.key", PrivateKeyPem(KeyOf(KeyKind::Rsa)));
        AddObject("certificate", "01", "user.der");
        AddObject("privateKey", "01", "user.key");
    }

    /// `id` stands for its own bytes.
    void AddObject(const char* objectClass, const std::string& id, const char* file) {
        script["objects"].push_back({{"class", objectClass}, {"id", ToHex(id)}, {"file", file}});
    }

    void AddCertificate(const std::string& id, const std::string& file, const CertificateOrder& certificate) {
        WriteFile(file, certificate.der());
        AddObject("certificate", id, file.c_str());
    }

    void LoadModule() {
        WriteFile("fake-pkcs11.json", script.dump());
        TokenDriverFullPath = FAKE_PKCS11_MODULE;
        const OperationResult loaded = tokenManager.LoadTokenDrivers();
        ASSERT_TRUE(loaded.success) << loaded.text;
    }

    void OpenToken() {
        LoadModule();
        ASSERT_TRUE(tokenManager.TokenOpenSession().success);
    }

    void LogIn() {
        LoadModule();
        const OperationResult login = tokenManager.TokenLogin("1234");
        ASSERT_TRUE(login.success) << login.text;
    }

    /// The calls of one entry point so far, as the module recorded them.
    static std::vector<nlohmann::json> Calls(const std::string& entryPoint) {
        std::vector<nlohmann::json> calls;
        std::istringstream lines(ReadFile("fake-pkcs11-calls.jsonl"));
        for (std::string line; std::getline(lines, line);) {
            if (nlohmann::json call = nlohmann::json::parse(line); call.at("call") == entryPoint)
                calls.push_back(std::move(call));
        }
        return calls;
    }

    nlohmann::json script = {{"slots", {5}}, {"pin", "1234"}, {"objects", nlohmann::json::array()}};
};
