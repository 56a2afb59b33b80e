// Lengths of a window in design units of 1/96 inch, which look the same at every scale. Pure.
#pragma once

#include <cstdint>

namespace vextra {

// number * numerator / denominator, rounded to the nearest, halves away from zero: what the system's MulDiv
// gives. `denominator` must be positive.
constexpr int mulDiv(int number, int numerator, int denominator) {
    const std::int64_t product = std::int64_t{number} * numerator;
    const std::int64_t half = denominator / 2;
    return static_cast<int>((product < 0 ? product - half : product + half) / denominator);
}

constexpr int kDesignDpi = 96;

constexpr int pixelsFromDesign(int designUnits, int dpi) {
    return mulDiv(designUnits, dpi, kDesignDpi);
}
constexpr int designFromPixels(int pixels, int dpi) {
    return mulDiv(pixels, kDesignDpi, dpi);
}

}  // namespace vextra
