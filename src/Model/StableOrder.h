#pragma once

#include <algorithm>
#include <vector>

namespace halvane {

// Timed records are put in time order keeping the recorded order of equal times, so that a
// down and an up at the same moment, or two segments starting together, stay as they were.
template <class T, class Key>
void stableSortBy(std::vector<T>& values, Key T::*key) {
    std::stable_sort(values.begin(), values.end(), [key](const T& a, const T& b) { return a.*key < b.*key; });
}

}  // namespace halvane
