// The entry points that the program resolves: each counts its calls, applies the fault that the script has
// for this one, and writes a record of what came in and what went out.

#include "CallRecord.h"
#include "FakeToken.h"

#include <chrono>
#include <exception>
#include <initializer_list>
#include <map>
#include <string_view>
#include <thread>

namespace {

Script LoadScript() {
    try {
        return Script::Load();
    } catch (const std::exception& e) {
        AppendCallRecord({{"unusableScript", e.what()}});
        Script broken;
        broken.faults = {{{"call", "*"}, {"rv", CKR_GENERAL_ERROR}}};
        return broken;
    }
}

FakeToken& Token() {
    static FakeToken token(LoadScript());
    return token;
}

/// How many calls of this entry point there were, this one included, since the faults are what they are.
unsigned CountCall(const std::string& call) {
    static std::map<std::string, unsigned> counts;
    if (Token().TheScript().TakeNewFaults())
        counts.clear();
    return ++counts[call];
}

/// An output parameter under the name that the script and the record use. Null targets are passed over.
struct Output {
    const char* name;
    CK_ULONG* target;
};

template <typename Work>
CK_RV Serve(const char* call, nlohmann::json arguments, Work work,
            std::initializer_list<Output> outputs = {}) {
    const unsigned nth = CountCall(call);
    const Fault fault = Token().TheScript().FaultOf(call, nth);
    std::this_thread::sleep_for(std::chrono::milliseconds(fault.delayMilliseconds));
    if (fault.throws)
        throw std::logic_error("thrown by the module");
    const CK_RV result = fault.returnValue ? *fault.returnValue : work(Token());

    auto out = nlohmann::json::object();
    for (const Output& output : outputs) {
        if (!output.target)
            continue;
        fault.Overwrite(output.name, *output.target);
        out[output.name] = *output.target;
    }
    AppendCallRecord(
        {{"call", call}, {"nth", nth}, {"in", std::move(arguments)}, {"out", out}, {"rv", result}});
    return result;
}

std::string BytesOf(const CK_BYTE* bytes, CK_ULONG length) {
    return bytes ? std::string(reinterpret_cast<const char*>(bytes), length) : std::string();
}

/// The length field of the attribute of this type; null when the template has none.
CK_ULONG* LengthOf(CK_ATTRIBUTE* attributes, CK_ULONG count, CK_ATTRIBUTE_TYPE type) {
    for (CK_ULONG i = 0; i < count; ++i)
        if (attributes[i].type == type)
            return &attributes[i].ulValueLen;
    return nullptr;
}

} // namespace

CK_RV C_Initialize(void* arguments) {
    return Serve("C_Initialize", {{"isNull", arguments == nullptr}},
                 [](FakeToken& token) { return token.Initialize(); });
}

CK_RV C_Finalize(void* reserved) {
    return Serve("C_Finalize", {{"isNull", reserved == nullptr}},
                 [](FakeToken& token) { return token.Finalize(); });
}

CK_RV C_GetSlotList(CK_BBOOL tokenPresent, CK_SLOT_ID* list, CK_ULONG* count) {
    return Serve(
        "C_GetSlotList", {{"tokenPresent", tokenPresent}, {"isNull", list == nullptr}, {"count", *count}},
        [&](FakeToken& token) { return token.GetSlotList(list, count); }, {{"count", count}, {"slot", list}});
}

CK_RV C_OpenSession(CK_SLOT_ID slot, CK_FLAGS flags, void* application, CK_NOTIFY notify,
                    CK_SESSION_HANDLE* session) {
    return Serve(
        "C_OpenSession",
        {{"slot", slot}, {"flags", flags}, {"applicationIsNull", !application}, {"notifyIsNull", !notify}},
        [&](FakeToken& token) { return token.OpenSession(slot, flags, session); }, {{"session", session}});
}

CK_RV C_Login(CK_SESSION_HANDLE session, CK_USER_TYPE user, CK_BYTE* pin, CK_ULONG pinLength) {
    const std::string_view given(reinterpret_cast<const char*>(pin), pin ? pinLength : 0);
    auto arguments = nlohmann::json{{"session", session}, {"user", user}, {"pinLength", pinLength}};
    if (Token().TheScript().pinSha256.empty())
        arguments["pin"] = given;
    return Serve("C_Login", std::move(arguments),
                 [&](FakeToken& token) { return token.Login(session, user, given); });
}

CK_RV C_FindObjectsInit(CK_SESSION_HANDLE session, CK_ATTRIBUTE* attributes, CK_ULONG count) {
    return Serve("C_FindObjectsInit",
                 {{"session", session}, {"count", count}, {"template", TemplateJson(attributes, count)}},
                 [&](FakeToken& token) { return token.FindObjectsInit(session, attributes, count); });
}

CK_RV C_FindObjects(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE* objects, CK_ULONG max, CK_ULONG* count) {
    return Serve("C_FindObjects", {{"session", session}, {"max", max}, {"count", *count}},
                 [&](FakeToken& token) { return token.FindObjects(session, objects, max, count); },
                 {{"count", count}, {"object", objects}});
}

CK_RV C_FindObjectsFinal(CK_SESSION_HANDLE session) {
    return Serve("C_FindObjectsFinal", {{"session", session}},
                 [&](FakeToken& token) { return token.FindObjectsFinal(session); });
}

CK_RV C_GetAttributeValue(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object, CK_ATTRIBUTE* attributes,
                          CK_ULONG count) {
    return Serve(
        "C_GetAttributeValue",
        {{"session", session},
         {"object", object},
         {"count", count},
         {"template", TemplateJson(attributes, count)}},
        [&](FakeToken& token) { return token.GetAttributeValue(session, object, attributes, count); },
        {{"CKA_VALUE", LengthOf(attributes, count, CKA_VALUE)},
         {"CKA_ID", LengthOf(attributes, count, CKA_ID)}});
}

CK_RV C_SignInit(CK_SESSION_HANDLE session, CK_MECHANISM* mechanism, CK_OBJECT_HANDLE key) {
    return Serve("C_SignInit",
                 {{"session", session},
                  {"mechanism", mechanism->mechanism},
                  {"parameterIsNull", mechanism->pParameter == nullptr},
                  {"parameterLength", mechanism->ulParameterLen},
                  {"key", key}},
                 [&](FakeToken& token) { return token.SignInit(session, *mechanism, key); });
}

CK_RV C_Sign(CK_SESSION_HANDLE session, CK_BYTE* data, CK_ULONG dataLength, CK_BYTE* signature,
             CK_ULONG* length) {
    return Serve(
        "C_Sign",
        {{"session", session},
         {"data", HexOf(data, dataLength)},
         {"dataLength", dataLength},
         {"isNull", signature == nullptr},
         {"length", *length}},
        [&](FakeToken& token) { return token.Sign(session, BytesOf(data, dataLength), signature, length); },
        {{"length", length}});
}

CK_RV C_SignFinal(CK_SESSION_HANDLE session, CK_BYTE* signature, CK_ULONG* length) {
    return Serve("C_SignFinal", {{"session", session}, {"isNull", signature == nullptr}, {"length", *length}},
                 [](FakeToken&) { return CKR_OPERATION_NOT_INITIALIZED; });
}
