#include "Report.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cctype>
#include <iostream>

namespace {

std::string LowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

} // namespace

Report::Report(std::string filter) : filter_(LowerCase(std::move(filter))) {}

bool Report::Wants(const std::string& what) const {
    if (LowerCase(what).find(filter_) == std::string::npos)
        return false;
    std::cerr << "measuring: " << what << std::endl;
    return true;
}

void Report::Add(const Row& row) {
    isEmpty_ = false;
    std::cout << nlohmann::ordered_json{{"what", row.what},
                                        {"ours", row.medians.ours},
                                        {"reference", row.medians.reference},
                                        {"ratio", row.higherIsBetter
                                                      ? row.medians.reference / row.medians.ours
                                                      : row.medians.ours / row.medians.reference},
                                        {"target", row.target},
                                        {"higher_is_better", row.higherIsBetter}}
              << std::endl;
}
