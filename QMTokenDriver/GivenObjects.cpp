#include "GivenObjects.h"

#include "Pkcs11Error.h"

#include <array>
#include <vector>

namespace tokendriver {

namespace {

template <class Known>
bool Agrees(const std::optional<Known>& known, const std::optional<Known>& told) {
    return !known || !told || *known == *told;
}

template <class Known>
void Learn(std::optional<Known>& known, const std::optional<Known>& told) {
    if (told)
        known = told;
}

/// The module's handles of all objects that it may be.
std::vector<CK_OBJECT_HANDLE> Candidates(GivenObject& object) {
    std::vector<CK_OBJECT_HANDLE> found;
    if (object.objectClass == CKO_CERTIFICATE && object.certificate) {
        for (const FoundCertificate& one : object.token->Certificates())
            if (*one.certificate == *object.certificate)
                found.push_back(one.object);
        return found;
    }
    if (!object.objectClass || !object.id.raw)
        return found;
    std::array attributes = {CK_ATTRIBUTE{CKA_CLASS, &*object.objectClass, sizeof *object.objectClass},
                             CK_ATTRIBUTE{CKA_ID, object.id.raw->data(), object.id.raw->size()}};
    const ModuleSession& session = object.token->Session();
    return KeysFor(object.certificate.get(), session.Find(attributes), session);
}

} // namespace

CK_OBJECT_HANDLE GivenObjects::GiveOut(Token& token, CK_OBJECT_HANDLE inModule,
                                       const std::optional<CK_OBJECT_CLASS>& objectClass,
                                       const std::optional<Bytes>& id) {
    CK_OBJECT_HANDLE& handle = givenOut_[{&token, inModule}];
    GivenObject* known = Object(handle);
    if (known == nullptr || known->visit != token.Visit() || !Agrees(known->objectClass, objectClass) ||
        !Agrees(known->id.raw, id)) {
        if (objects_.size() >= kMaxObjectsGivenOut)
            throw Pkcs11Error(CKR_DEVICE_MEMORY);
        handle = objects_.size() + 1;
        objects_.push_back({handle, &token, inModule, token.Visit(), {}, {}, {}, {}});
        known = &objects_.back();
    }
    Learn(known->objectClass, objectClass);
    Learn(known->id.raw, id);
    return handle;
}

GivenObject* GivenObjects::Object(CK_OBJECT_HANDLE handle) {
    return handle == 0 || handle > objects_.size() ? nullptr : &objects_[handle - 1];
}

CK_OBJECT_HANDLE GivenObjects::HandleFor(GivenObject& object) {
    if (object.visit == object.token->Visit())
        return object.inModule;
    const std::vector<CK_OBJECT_HANDLE> found = Candidates(object);
    if (found.size() != 1)
        throw Pkcs11Error(found.empty() && !object.token->IsLoggedIn() ? CKR_USER_NOT_LOGGED_IN
                                                                       : CKR_OBJECT_HANDLE_INVALID);
    object.inModule = found[0];
    object.visit = object.token->Visit();
    givenOut_[{object.token, object.inModule}] = object.handle;
    return object.inModule;
}

} // namespace tokendriver
