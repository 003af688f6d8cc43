#include "Script.h"

#include <openssl/pem.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace {

std::string ReadFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw std::runtime_error("cannot read " + path);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

EvpPtr<EVP_PKEY> ReadPrivateKey(const std::string& path) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "r"), std::fclose);
    EvpPtr<EVP_PKEY> key(file ? PEM_read_PrivateKey(file.get(), nullptr, nullptr, nullptr) : nullptr);
    if (!key)
        throw std::runtime_error("cannot read the private key " + path);
    return key;
}

std::string FromHex(const std::string& hex) {
    std::string bytes;
    for (size_t i = 0; i + 1 < hex.size(); i += 2)
        bytes.push_back(static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16)));
    return bytes;
}

TokenObject ReadObject(const nlohmann::json& entry) {
    const std::string id = FromHex(entry.value("id", ""));
    const std::string file = entry.at("file");
    if (entry.at("class") == "privateKey")
        return {CKO_PRIVATE_KEY, id, "", ReadPrivateKey(file)};
    return {CKO_CERTIFICATE, id, ReadFile(file), nullptr};
}

} // namespace

void Fault::Overwrite(const char* member, CK_ULONG& target) const {
    if (out.contains(member))
        target = static_cast<CK_ULONG>(out[member].get<int64_t>());
}

Script Script::Load() {
    const auto json = nlohmann::json::parse(ReadFile("fake-pkcs11.json"));
    Script script;
    script.slots = json.value("slots", std::vector<CK_SLOT_ID>{});
    script.pin = json.value("pin", "");
    script.pinSha256 = json.value("pinSha256", "");
    script.pinTries = json.value("pinTries", script.pinTries);
    script.strict = json.value("strict", false);
    script.forgiving = json.value("forgiving", false);
    script.faults = json.value("faults", nlohmann::json::array());
    for (const auto& entry : json.value("objects", nlohmann::json::array()))
        script.objects.push_back(ReadObject(entry));
    return script;
}

bool Script::TakeNewFaults() {
    constexpr char kFile[] = "fake-pkcs11-faults.json";
    if (!std::filesystem::exists(kFile))
        return false;
    faults = nlohmann::json::parse(ReadFile(kFile));
    std::filesystem::remove(kFile);
    return true;
}

Fault Script::FaultOf(const std::string& call, unsigned nth) const {
    for (const auto& entry : faults) {
        if (entry.at("call") != call && entry.at("call") != "*")
            continue;
        if ((entry.contains("nth") && entry["nth"] != nth) || entry.value("from", 1u) > nth)
            continue;
        Fault fault;
        if (entry.contains("rv"))
            fault.returnValue = entry["rv"].get<CK_RV>();
        fault.out = entry.value("out", fault.out);
        fault.delayMilliseconds = entry.value("delay", 0u);
        fault.throws = entry.value("throws", false);
        return fault;
    }
    return {};
}
