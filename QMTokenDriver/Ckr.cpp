#include "Ckr.h"

#include <p11-kit/p11-kit.h>

#include <algorithm>
#include <array>
#include <sstream>

#ifndef CKR_OPERATION_CANCEL_FAILED // in p11-kit 0.24 it is not
#define CKR_OPERATION_CANCEL_FAILED (0x202UL)
#endif

namespace tokendriver {

namespace {

struct Named {
    CK_RV answer;
    const char* name;
};

#define N(name)                                                                                              \
    Named { CKR_##name, "CKR_" #name }

constexpr std::array kNames = {N(OK),
                               N(CANCEL),
                               N(HOST_MEMORY),
                               N(SLOT_ID_INVALID),
                               N(GENERAL_ERROR),
                               N(FUNCTION_FAILED),
                               N(ARGUMENTS_BAD),
                               N(NO_EVENT),
                               N(NEED_TO_CREATE_THREADS),
                               N(CANT_LOCK),
                               N(ATTRIBUTE_READ_ONLY),
                               N(ATTRIBUTE_SENSITIVE),
                               N(ATTRIBUTE_TYPE_INVALID),
                               N(ATTRIBUTE_VALUE_INVALID),
                               N(ACTION_PROHIBITED),
                               N(DATA_INVALID),
                               N(DATA_LEN_RANGE),
                               N(DEVICE_ERROR),
                               N(DEVICE_MEMORY),
                               N(DEVICE_REMOVED),
                               N(ENCRYPTED_DATA_INVALID),
                               N(ENCRYPTED_DATA_LEN_RANGE),
                               N(FUNCTION_CANCELED),
                               N(FUNCTION_NOT_PARALLEL),
                               N(FUNCTION_NOT_SUPPORTED),
                               N(KEY_HANDLE_INVALID),
                               N(KEY_SIZE_RANGE),
                               N(KEY_TYPE_INCONSISTENT),
                               N(KEY_NOT_NEEDED),
                               N(KEY_CHANGED),
                               N(KEY_NEEDED),
                               N(KEY_INDIGESTIBLE),
                               N(KEY_FUNCTION_NOT_PERMITTED),
                               N(KEY_NOT_WRAPPABLE),
                               N(KEY_UNEXTRACTABLE),
                               N(MECHANISM_INVALID),
                               N(MECHANISM_PARAM_INVALID),
                               N(OBJECT_HANDLE_INVALID),
                               N(OPERATION_ACTIVE),
                               N(OPERATION_NOT_INITIALIZED),
                               N(PIN_INCORRECT),
                               N(PIN_INVALID),
                               N(PIN_LEN_RANGE),
                               N(PIN_EXPIRED),
                               N(PIN_LOCKED),
                               N(SESSION_CLOSED),
                               N(SESSION_COUNT),
                               N(SESSION_HANDLE_INVALID),
                               N(SESSION_PARALLEL_NOT_SUPPORTED),
                               N(SESSION_READ_ONLY),
                               N(SESSION_EXISTS),
                               N(SESSION_READ_ONLY_EXISTS),
                               N(SESSION_READ_WRITE_SO_EXISTS),
                               N(SIGNATURE_INVALID),
                               N(SIGNATURE_LEN_RANGE),
                               N(TEMPLATE_INCOMPLETE),
                               N(TEMPLATE_INCONSISTENT),
                               N(TOKEN_NOT_PRESENT),
                               N(TOKEN_NOT_RECOGNIZED),
                               N(TOKEN_WRITE_PROTECTED),
                               N(UNWRAPPING_KEY_HANDLE_INVALID),
                               N(UNWRAPPING_KEY_SIZE_RANGE),
                               N(UNWRAPPING_KEY_TYPE_INCONSISTENT),
                               N(USER_ALREADY_LOGGED_IN),
                               N(USER_NOT_LOGGED_IN),
                               N(USER_PIN_NOT_INITIALIZED),
                               N(USER_TYPE_INVALID),
                               N(USER_ANOTHER_ALREADY_LOGGED_IN),
                               N(USER_TOO_MANY_TYPES),
                               N(WRAPPED_KEY_INVALID),
                               N(WRAPPED_KEY_LEN_RANGE),
                               N(WRAPPING_KEY_HANDLE_INVALID),
                               N(WRAPPING_KEY_SIZE_RANGE),
                               N(WRAPPING_KEY_TYPE_INCONSISTENT),
                               N(RANDOM_SEED_NOT_SUPPORTED),
                               N(RANDOM_NO_RNG),
                               N(DOMAIN_PARAMS_INVALID),
                               N(CURVE_NOT_SUPPORTED),
                               N(BUFFER_TOO_SMALL),
                               N(SAVED_STATE_INVALID),
                               N(INFORMATION_SENSITIVE),
                               N(STATE_UNSAVEABLE),
                               N(CRYPTOKI_NOT_INITIALIZED),
                               N(CRYPTOKI_ALREADY_INITIALIZED),
                               N(MUTEX_BAD),
                               N(MUTEX_NOT_LOCKED),
                               N(NEW_PIN_MODE),
                               N(NEXT_OTP),
                               N(EXCEEDED_MAX_ITERATIONS),
                               N(FIPS_SELF_TEST_FAILED),
                               N(LIBRARY_LOAD_FAILED),
                               N(PIN_TOO_WEAK),
                               N(PUBLIC_KEY_INVALID),
                               N(FUNCTION_REJECTED),
                               N(OPERATION_CANCEL_FAILED)};

#undef N

std::string NameOf(CK_RV answer) {
    const auto* found = std::find_if(kNames.begin(), kNames.end(),
                                     [answer](const Named& named) { return named.answer == answer; });
    if (found != kNames.end())
        return found->name;
    std::ostringstream hex;
    hex << "0x" << std::hex << answer;
    return hex.str();
}

} // namespace

std::string DescribeAnswer(CK_RV answer) {
    return std::string(p11_kit_strerror(answer)) + " (" + NameOf(answer) + ")";
}

} // namespace tokendriver
