#include "base/base64.h"

#include <cstddef>
#include <cstdint>

namespace base {
namespace {

constexpr int kBad = -1;

// The 6-bit value of one alphabet character, or kBad.
int SextetOf(char c) {
    if (c >= 'A' && c <= 'Z') {
        return c - 'A';
    }
    if (c >= 'a' && c <= 'z') {
        return c - 'a' + 26;
    }
    if (c >= '0' && c <= '9') {
        return c - '0' + 52;
    }
    if (c == '+') {
        return 62;
    }
    if (c == '/') {
        return 63;
    }
    return kBad;
}

}  // namespace

bool Base64Decode(const std::string& text, std::string* output) {
    if (text.empty()) {
        if (output) {
            output->clear();
        }
        return true;
    }
    if (text.size() < 4 || text.size() % 4 != 0) {
        return false;
    }
    std::size_t length = text.size();
    if (text[length - 1] == '=') {
        --length;
        if (text[length - 1] == '=') {
            --length;
        }
    }

    std::string decoded;
    decoded.reserve(length / 4 * 3 + 2);
    uint32_t bits = 0;
    int pending = 0;  // characters gathered in `bits`
    for (std::size_t i = 0; i < length; ++i) {
        int sextet = SextetOf(text[i]);
        if (sextet == kBad) {
            return false;
        }
        bits = (bits << 6) | static_cast<uint32_t>(sextet);
        if (++pending == 4) {
            decoded.push_back(static_cast<char>((bits >> 16) & 0xFF));
            decoded.push_back(static_cast<char>((bits >> 8) & 0xFF));
            decoded.push_back(static_cast<char>(bits & 0xFF));
            bits = 0;
            pending = 0;
        }
    }
    // A short last group: two characters carry one byte, three carry two.
    // Unused low bits of the last character are ignored.
    if (pending == 2) {
        decoded.push_back(static_cast<char>((bits >> 4) & 0xFF));
    } else if (pending == 3) {
        decoded.push_back(static_cast<char>((bits >> 10) & 0xFF));
        decoded.push_back(static_cast<char>((bits >> 2) & 0xFF));
    }

    if (output) {
        output->swap(decoded);
    }
    return true;
}

}  // namespace base
