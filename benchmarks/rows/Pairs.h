#pragma once

#include <algorithm>
#include <vector>

struct Medians {
    double ours;
    double reference;
};

inline double Median(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

/// Calls both in turn, `warmUp` times for nothing and then `pairs` times (an odd number) for the medians of
/// what they return. Who goes first changes from pair to pair, so that neither always meets the other's
/// leavings.
template <class Ours, class Reference>
Medians MeasureInTurn(int warmUp, int pairs, Ours&& ours, Reference&& reference) {
    std::vector<double> oursValues, referenceValues;
    for (int i = -warmUp; i < pairs; ++i) {
        const bool oursFirst = i % 2 == 0;
        double oursValue = oursFirst ? ours() : 0;
        const double referenceValue = reference();
        if (!oursFirst)
            oursValue = ours();
        if (i >= 0) {
            oursValues.push_back(oursValue);
            referenceValues.push_back(referenceValue);
        }
    }
    return {Median(std::move(oursValues)), Median(std::move(referenceValues))};
}
