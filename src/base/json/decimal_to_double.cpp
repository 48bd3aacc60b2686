#include "base/json/decimal_to_double.h"

#include <cstring>

namespace base {
namespace internal {

namespace {

using uint128 = unsigned __int128;

// Every number with up to 19 significant digits and from 54 places after
// the point to 55 before it is converted here; the rest go the long way.
constexpr int kMinExponent = -54;
constexpr int kMaxExponent = 55;

// 5^q scaled by 2^shift into [2^127, 2^128). Exact for q >= 0; for q < 0
// it is floor(2^shift / 5^-q), which is always just below the true value.
struct Power {
    uint128 value;
    int shift;
};

int BitLength(uint128 v) {
    int n = 0;
    while (v != 0) {
        ++n;
        v >>= 1;
    }
    return n;
}

struct PowerTable {
    Power powers[kMaxExponent - kMinExponent + 1];

    PowerTable() {
        uint128 five = 1;
        for (int k = 0; k <= kMaxExponent; five *= 5, ++k) {
            const int n = BitLength(five);
            powers[k - kMinExponent] = {five << (128 - n), 128 - n};
            if (k == 0 || -k < kMinExponent) {
                continue;
            }
            // floor(2^(n + 127) / 5^k), one bit at a time; 5^k < 2^126
            // here, so the remainder never needs more than 127 bits.
            const int shift = n + 127;
            uint128 quotient = 0;
            uint128 remainder = 0;
            for (int i = shift; i >= 0; --i) {
                remainder = (remainder << 1) | (i == shift ? 1 : 0);
                if (remainder >= five) {
                    remainder -= five;
                    quotient |= static_cast<uint128>(1) << (i & 127);
                }
            }
            powers[-k - kMinExponent] = {quotient, shift};
        }
    }
};

}  // namespace

bool DecimalToDouble(uint64_t significand, int64_t exponent10, bool negative, double* out) {
    const uint64_t sign = negative ? 1ull << 63 : 0;
    if (significand == 0) {
        std::memcpy(out, &sign, sizeof *out);
        return true;
    }
    if (exponent10 < kMinExponent || exponent10 > kMaxExponent) {
        return false;
    }
    static const PowerTable table;
    const Power& power = table.powers[exponent10 - kMinExponent];

    // The 192-bit product of the normalised significand and the power:
    // it lies in [2^190, 2^192).
    const int leading_zeros = __builtin_clzll(significand);
    const uint64_t w = significand << leading_zeros;
    const uint128 low = static_cast<uint128>(w) * static_cast<uint64_t>(power.value);
    const uint128 high = static_cast<uint128>(w) * static_cast<uint64_t>(power.value >> 64);
    const uint128 middle_sum = static_cast<uint64_t>(high) + (low >> 64);
    const uint64_t bottom = static_cast<uint64_t>(low);
    const uint64_t middle = static_cast<uint64_t>(middle_sum);
    const uint64_t top =
        static_cast<uint64_t>(high >> 64) + static_cast<uint64_t>(middle_sum >> 64);

    // The 53 bits of the result and the rounding bit below them.
    const int top_bit = static_cast<int>(top >> 63);
    const int below = 9 + top_bit;
    const uint64_t prefix = top >> below;
    const uint64_t rest_of_top = top & ((1ull << below) - 1);

    bool round_up;
    if (exponent10 >= 0) {
        // The product is exact: round half to even.
        const bool sticky = rest_of_top != 0 || middle != 0 || bottom != 0;
        round_up = (prefix & 1) != 0 && (sticky || (prefix & 2) != 0);
    } else {
        // The true product exceeds this one by less than 2^64. Unless the
        // middle word is all ones, that can't carry into the prefix, and
        // what lies below the rounding bit is never zero: a tie can't
        // happen, and a set rounding bit means rounding up.
        if (middle == ~0ull) {
            return false;
        }
        round_up = (prefix & 1) != 0;
    }
    uint64_t mantissa = (prefix >> 1) + (round_up ? 1 : 0);
    int64_t biased = 190 + top_bit + exponent10 - leading_zeros - power.shift + 1023;
    if (mantissa >> 53) {
        mantissa >>= 1;
        ++biased;
    }
    if (biased < 1 || biased > 2046) {
        return false;
    }
    const uint64_t bits =
        sign | (static_cast<uint64_t>(biased) << 52) | (mantissa & ((1ull << 52) - 1));
    std::memcpy(out, &bits, sizeof *out);
    return true;
}

}  // namespace internal
}  // namespace base
