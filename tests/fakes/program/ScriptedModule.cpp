// fake-pkcs11.so: a token with the slots, objects and faults of a script, which records every call
// (README.md).

#include "CallRecord.h"
#include "FakeToken.h"
#include "support/Bytes.h"
#include "support/OpenSsl.h"

#include <openssl/pem.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <thread>

namespace {

using nlohmann::json;

std::string ReadFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw std::runtime_error("cannot read " + path);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

Owned<EVP_PKEY> ReadPrivateKey(const std::string& path) {
    const std::string pem = ReadFile(path);
    Owned<EVP_PKEY> key(PEM_read_bio_PrivateKey(ReaderOf(pem).get(), nullptr, nullptr, nullptr));
    if (!key)
        throw std::runtime_error("cannot read the private key " + path);
    return key;
}

class ScriptedModule : public FakeToken {
public:
    ScriptedModule() {
        try {
            Load(json::parse(ReadFile("fake-pkcs11.json")));
        } catch (const std::exception& e) {
            AppendCallRecord({{"unusableScript", e.what()}});
            faults_ = {{{"call", "*"}, {"rv", CKR_GENERAL_ERROR}}};
        }
    }

    std::vector<CK_SLOT_ID> Slots() override { return slots_; }
    std::vector<Object> MakeObjects() override { return objects_; }

    /// Makes no copy of what was typed.
    bool IsPin(std::string_view typed) override {
        return pinSha256_.empty() ? typed == pin : DigestOf("SHA256", typed) == FromHex(pinSha256_);
    }

    CK_RV Initialize() override {
        initialised = initialised && !forgiving_;
        return FakeToken::Initialize();
    }
    CK_RV FindObjectsInit(Session& session, std::span<const CK_ATTRIBUTE> wanted) override {
        if (forgiving_)
            session.search.reset();
        return FakeToken::FindObjectsInit(session, wanted);
    }
    CK_RV SignInit(Session& session, CK_MECHANISM_TYPE mechanism, CK_OBJECT_HANDLE key) override {
        if (forgiving_)
            session.signing.reset();
        return FakeToken::SignInit(session, mechanism, key);
    }

    CK_RV Serve(const Call& call, const std::function<CK_RV()>& work) override {
        TakeNewFaults();
        const unsigned nth = ++counts_[call.name];
        const json fault = FaultOf(call.name, nth);
        json in = ArgumentsOf(call, pinSha256_.empty());
        std::this_thread::sleep_for(std::chrono::milliseconds(fault.value("delay", 0u)));
        if (fault.value("throws", false))
            throw std::logic_error("thrown by the module");
        const CK_RV result = fault.contains("rv") ? fault["rv"].get<CK_RV>() : work();

        auto out = json::object();
        const json wrong = fault.value("out", json::object());
        for (const auto& [name, target] : call.out) {
            if (target == nullptr)
                continue;
            if (wrong.contains(name))
                *target = static_cast<CK_ULONG>(wrong[name].get<int64_t>());
            out[name] = *target;
        }
        AppendCallRecord(
            {{"call", call.name}, {"nth", nth}, {"in", std::move(in)}, {"out", out}, {"rv", result}});
        return result;
    }

private:
    void Load(const json& script) {
        slots_ = script.value("slots", std::vector<CK_SLOT_ID>{});
        pin = script.value("pin", "");
        pinSha256_ = script.value("pinSha256", "");
        pinTries = script.value("pinTries", pinTries);
        strict = script.value("strict", false);
        forgiving_ = script.value("forgiving", false);
        faults_ = script.value("faults", json::array());
        for (const json& entry : script.value("objects", json::array())) {
            const Bytes id = Text(FromHex(entry.value("id", "")));
            const std::string file = entry.at("file");
            if (entry.at("class") == "privateKey")
                objects_.push_back(PrivateKey(id, keys_.emplace_back(ReadPrivateKey(file)).get()));
            else
                objects_.push_back(CertificateOf(id, Text(ReadFile(file))));
        }
    }

    void TakeNewFaults() {
        constexpr char kFile[] = "fake-pkcs11-faults.json";
        if (!std::filesystem::exists(kFile))
            return;
        faults_ = json::parse(ReadFile(kFile));
        std::filesystem::remove(kFile);
        counts_.clear();
    }

    /// The fault of the `nth` call (from 1) of this function; an empty object when nothing is to go wrong.
    json FaultOf(const std::string& call, unsigned nth) const {
        for (const json& entry : faults_) {
            const bool isMeant = entry.at("call") == call || entry.at("call") == "*";
            if (isMeant && entry.value("nth", nth) == nth && entry.value("from", 1u) <= nth)
                return entry;
        }
        return json::object();
    }

    std::vector<CK_SLOT_ID> slots_;
    std::string pinSha256_;
    bool forgiving_ = false;
    std::vector<Owned<EVP_PKEY>> keys_;
    std::vector<Object> objects_;
    json faults_ = json::array();
    std::map<std::string, unsigned> counts_; ///< of calls, since the faults are what they are
};

} // namespace

FAKE_TOKEN(ScriptedModule)
