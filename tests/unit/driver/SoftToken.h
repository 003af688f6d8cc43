#pragma once

#include "DriverFixture.h"

#include <string>

/// SoftHSM 2 with one initialised token ("Soft Token", PIN 1234) in the home's folder, and its module in
/// p11-kit's configuration. To be made before the driver starts.
class SoftToken {
public:
    explicit SoftToken(const P11KitHome& home);

    /// Stores an RSA 2048 key and a self-signed certificate for it under this id.
    void Store(const std::string& id, bool alwaysAuthenticate = false);

    /// SoftHSM itself, without p11-kit. Initialised only while the driver runs.
    CK_FUNCTION_LIST& Module() const { return *module_; }

    /// The slot of the token; asked of the module.
    CK_SLOT_ID Slot() const;

private:
    CK_SESSION_HANDLE OpenLoggedIn() const;

    Library library_;
    CK_FUNCTION_LIST* module_ = nullptr;
};
