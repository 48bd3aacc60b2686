// Decodes arbitrary text, and encodes arbitrary bytes to decode them back.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "base/base64.h"

namespace {

void Check(bool ok) {
    if (!ok) {
        std::abort();
    }
}

// A plain encoder, only here to make valid input.
std::string Encode(const std::string& bytes) {
    static const char kAlphabet[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    std::size_t i = 0;
    for (; i + 3 <= bytes.size(); i += 3) {
        uint32_t v =
            (uint8_t(bytes[i]) << 16) | (uint8_t(bytes[i + 1]) << 8) | uint8_t(bytes[i + 2]);
        for (int shift = 18; shift >= 0; shift -= 6) {
            out += kAlphabet[(v >> shift) & 63];
        }
    }
    const std::size_t rest = bytes.size() - i;
    if (rest > 0) {
        uint32_t v = uint8_t(bytes[i]) << 16;
        if (rest == 2) {
            v |= uint8_t(bytes[i + 1]) << 8;
        }
        out += kAlphabet[(v >> 18) & 63];
        out += kAlphabet[(v >> 12) & 63];
        out += rest == 2 ? kAlphabet[(v >> 6) & 63] : '=';
        out += '=';
    }
    return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);

    std::string output = "unchanged";
    if (base::Base64Decode(text, &output)) {
        std::size_t pads = 0;
        while (pads < 2 && pads < text.size() && text[text.size() - 1 - pads] == '=') {
            ++pads;
        }
        Check(text.size() % 4 == 0);
        Check(output.size() == (text.size() - pads) * 3 / 4);
        // Re-encoding gives the input back but for unused low bits.
        std::string again;
        Check(base::Base64Decode(Encode(output), &again) && again == output);
    } else {
        Check(output == "unchanged");
    }

    std::string decoded;
    Check(base::Base64Decode(Encode(text), &decoded));
    Check(decoded == text);
    return 0;
}
