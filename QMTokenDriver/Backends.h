#pragma once

#include "ModuleProbe.h"

#include <p11-kit/pkcs11.h>

#include <memory>
#include <string>
#include <vector>

namespace tokendriver {

/// One module of p11-kit's configuration, loaded and initialised.
struct Backend {
    std::string name;            ///< the name of its .module file
    std::string path;            ///< its shared object
    CK_FUNCTION_LIST* functions; ///< never null, owned by p11-kit
};

/// A module that is not used, and why.
struct SkippedModule {
    std::string name;
    std::string path; ///< empty when p11-kit did not get so far as to know it
    std::string reason;
};

/// All modules of p11-kit's configuration, in p11-kit's order; initialised as long as this lives. A module
/// that fails is left out and told.
class Backends {
public:
    /// Loads and initialises them, without those that hang or crash: that is tried out once per process.
    /// Throws Pkcs11Error CKR_GENERAL_ERROR when p11-kit's configuration cannot be read.
    Backends();

    /// The same for one who has tried them out (ProbeEachAlone): without those of `harmful`.
    explicit Backends(const std::vector<ProbeResult>& harmful);

    const std::vector<Backend>& Modules() const { return modules_; }
    const std::vector<SkippedModule>& Skipped() const { return skipped_; }

private:
    void Initialise();

    struct Release {
        void operator()(CK_FUNCTION_LIST** modules) const;
    };

    std::unique_ptr<CK_FUNCTION_LIST*, Release> loaded_; ///< p11-kit's null-terminated list
    std::vector<Backend> modules_;
    std::vector<SkippedModule> skipped_;
};

} // namespace tokendriver
