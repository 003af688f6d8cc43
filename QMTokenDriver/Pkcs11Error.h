#pragma once

#include <p11-kit/pkcs11.h>

#include <exception>

namespace tokendriver {

/// A PKCS#11 failure on its way to the entry point, which answers it. Not for failures that the caller
/// handles.
class Pkcs11Error : public std::exception {
public:
    explicit Pkcs11Error(CK_RV code) : code_(code) {}
    CK_RV Code() const { return code_; }
    const char* what() const noexcept override { return "PKCS#11 failure"; }

private:
    CK_RV code_;
};

/// Returns on CKR_OK, else throws Pkcs11Error.
inline void Check(CK_RV code) {
    if (code != CKR_OK)
        throw Pkcs11Error(code);
}

/// The module's ways to say that the token, or the session on it, is no more.
inline bool IsGone(CK_RV answer) {
    return answer == CKR_SESSION_HANDLE_INVALID || answer == CKR_SESSION_CLOSED ||
           answer == CKR_DEVICE_REMOVED || answer == CKR_TOKEN_NOT_PRESENT ||
           answer == CKR_TOKEN_NOT_RECOGNIZED;
}

/// What `call` answers, or throws as a Pkcs11Error.
template <class Call>
CK_RV AnswerOf(Call&& call) {
    try {
        return call();
    } catch (const Pkcs11Error& error) {
        return error.Code();
    }
}

} // namespace tokendriver
