#pragma once

#include <p11-kit/pkcs11.h>

/// Calls a PKCS#11 entry point; one that the module lacks answers CKR_FUNCTION_NOT_SUPPORTED.
template <class... Parameters, class... Arguments>
CK_RV CallModule(CK_RV (*entryPoint)(Parameters...), Arguments... arguments) {
    return entryPoint ? entryPoint(arguments...) : CKR_FUNCTION_NOT_SUPPORTED;
}

/// The length given for a CK_ULONG in the host's search templates. The values are 64 bits wide; the
/// modules that the host grew up with compare their low four bytes.
inline constexpr CK_ULONG kTemplateUlongLength = 4;
