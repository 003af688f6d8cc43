#pragma once

#include "Pairs.h"

#include <string>

/// One line of the table. Its ratio is ours / reference; where higher is better, reference / ours: how many
/// times faster ours is.
struct Row {
    std::string what;
    Medians medians;
    double target;
    bool higherIsBetter = false;
};

/// Writes the rows to standard output as they are measured, each as one line of JSON.
class Report {
public:
    /// Only rows whose name contains `filter`, in any case, are wanted; all when it is empty.
    explicit Report(std::string filter);

    /// Whether this row is to be measured. Tells on standard error that it now is.
    bool Wants(const std::string& what) const;

    void Add(const Row& row);

    bool IsEmpty() const { return isEmpty_; }

private:
    std::string filter_;
    bool isEmpty_ = true;
};
