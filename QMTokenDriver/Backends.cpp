#include "Backends.h"

#include "Ckr.h"
#include "ModuleFiles.h"
#include "ModuleProbe.h"
#include "Pkcs11Error.h"

#include <p11-kit/p11-kit.h>

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <utility>

namespace tokendriver {

namespace {

struct Free {
    void operator()(char* text) const { std::free(text); } // p11-kit hands out malloc'ed texts
};

std::string Taken(char* text) {
    const std::unique_ptr<char, Free> owned(text);
    return owned ? owned.get() : "";
}

std::vector<ProbeResult> FindHarmful() {
    const ProbeResult together = ProbeAllTogether();
    if (!DoesHarm(together))
        return {};
    std::vector<ProbeResult> each = ProbeEachAlone();
    // None alone hangs: together they take long, as slow modules one after the other do. But none alone
    // crashes: they cannot be had together, and no choice among them is better than another.
    if (std::none_of(each.begin(), each.end(), DoesHarm) && together.outcome == ProbeOutcome::Crashed)
        return each;
    std::erase_if(each, [](const ProbeResult& probed) { return !DoesHarm(probed); });
    return each;
}

/// What was found out when the first driver of this process started; a module does not get better within a
/// session.
const std::vector<ProbeResult>& Harmful() {
    static const std::vector<ProbeResult> harmful = FindHarmful();
    return harmful;
}

std::vector<std::string> NamesWithout(const std::vector<ProbeResult>& harmful) {
    std::vector<std::string> names = ModuleFileNames();
    std::erase_if(names, [&harmful](const std::string& name) {
        return std::any_of(harmful.begin(), harmful.end(),
                           [&name](const ProbeResult& probed) { return probed.name == name; });
    });
    return names;
}

} // namespace

Backends::Backends() : Backends(Harmful()) {}

Backends::Backends(const std::vector<ProbeResult>& harmful) {
    p11_kit_set_progname(kProgramName);
    for (const ProbeResult& probed : harmful)
        skipped_.push_back({probed.name, {}, DescribeHarm(probed)});
    const std::vector<std::string> names = NamesWithout(harmful);
    if (names.empty())
        return;
    std::optional<ModuleFilesView> view;
    if (!harmful.empty())
        view.emplace(names);
    loaded_.reset(p11_kit_modules_load(nullptr, 0));
    if (!loaded_)
        throw Pkcs11Error(CKR_GENERAL_ERROR);
    Initialise();
}

void Backends::Initialise() {
    for (CK_FUNCTION_LIST** module = loaded_.get(); *module != nullptr; ++module) {
        std::string name = Taken(p11_kit_module_get_name(*module));
        std::string path = Taken(p11_kit_module_get_filename(*module));
        const CK_RV answer = p11_kit_module_initialize(*module);
        if (answer == CKR_OK)
            modules_.push_back({std::move(name), std::move(path), *module});
        else
            skipped_.push_back({std::move(name), std::move(path), DescribeAnswer(answer)});
    }
}

// Finalising one that was not initialised answers CKR_CRYPTOKI_NOT_INITIALIZED and does nothing.
void Backends::Release::operator()(CK_FUNCTION_LIST** modules) const {
    p11_kit_modules_finalize_and_release(modules);
}

} // namespace tokendriver
