#pragma once

#include <cstdint>

namespace base {
namespace internal {

// The double nearest to significand × 10^exponent10, ties to even, found
// with integer arithmetic alone. False leaves the number to a general
// conversion: an exponent outside the table, or a product too close to a
// rounding boundary to decide.
bool DecimalToDouble(uint64_t significand, int64_t exponent10, bool negative, double* out);

}  // namespace internal
}  // namespace base
