#include "Setting.h"

#include "support/ScratchFolder.h"

#include <nlohmann/json.hpp>

namespace fs = std::filesystem;

Setting::Setting(const std::string& file) {
    const auto json = nlohmann::json::parse(ReadFile(file));
    softhsm = json.at("softhsm");
    pin = json.at("pin");
    work = json.at("work").get<std::string>();
    bin_ = json.at("bin").get<std::string>();
    programs_ = json.at("programs").get<std::string>();
    driver = bin_ / "QMTokenDriver.so";
    for (const auto& token : json.at("tokens"))
        tokens_[token.at("certificates")] = {token.at("env"), token.at("signer")};
}

std::string Setting::NewHostFolder(int logLevel) const {
    const fs::path folder = work / ("host-" + std::to_string(++hostFolders_));
    fs::create_directory(folder);
    for (const char* name : {"QMTokenDriver.so", "QMLogo.png"})
        fs::create_symlink(bin_ / name, folder / name);
    WriteFile(folder / "QMHostSettings.json", "{\"AppLogLevel\":" + std::to_string(logLevel) + "}");
    return folder;
}

Program Setting::Host(const std::string& name, int certificates, int logLevel) const {
    Program program = {{name == "QMChromeExtHost" ? bin_ / name : programs_ / name},
                       NewHostFolder(logLevel),
                       Token(certificates).env};
    program.env["QM_USER_PIN"] = pin;
    return program;
}

Program Setting::Reference(const std::string& name, std::vector<std::string> arguments,
                           int certificates) const {
    arguments.insert(arguments.begin(), programs_ / name);
    return {std::move(arguments), NewHostFolder(kInfo), Token(certificates).env};
}
