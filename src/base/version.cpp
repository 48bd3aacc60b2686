#include "base/version.h"

#include <cstddef>
#include <utility>

namespace base {
namespace {

// A piece of digits only, no sign and no blank, that fits 32 bits.
bool ParsePiece(const std::string& piece, uint32_t* out) {
    if (piece.empty()) {
        return false;
    }
    uint64_t value = 0;
    for (char c : piece) {
        if (c < '0' || c > '9') {
            return false;
        }
        value = value * 10 + static_cast<uint64_t>(c - '0');
        if (value > UINT32_MAX) {
            return false;
        }
    }
    *out = static_cast<uint32_t>(value);
    return true;
}

}  // namespace

Version::Version() = default;

Version::Version(const std::string& text) : components_(Parse(text)) {}

Version::Version(std::vector<uint32_t> components) : components_(std::move(components)) {}

Version::Version(const Version& other) = default;
Version& Version::operator=(const Version& other) = default;
Version::~Version() = default;

std::string Version::GetString() const {
    std::string text;
    for (std::size_t i = 0; i < components_.size(); ++i) {
        if (i > 0) {
            text += '.';
        }
        text += std::to_string(components_[i]);
    }
    return text;
}

int Version::CompareTo(const Version& other) const {
    return Compare(components_, other.components_);
}

std::vector<uint32_t> Version::Parse(const std::string& text) {
    std::vector<uint32_t> numbers;
    std::size_t start = 0;
    for (;;) {
        std::size_t dot = text.find('.', start);
        std::string piece =
            text.substr(start, dot == std::string::npos ? std::string::npos : dot - start);
        uint32_t value = 0;
        if (!ParsePiece(piece, &value)) {
            return {};
        }
        // The first number must be written as it prints: "01.2" is refused.
        if (numbers.empty() && piece != std::to_string(value)) {
            return {};
        }
        numbers.push_back(value);
        if (dot == std::string::npos) {
            break;
        }
        start = dot + 1;
    }
    return numbers;
}

int Version::Compare(const std::vector<uint32_t>& a, const std::vector<uint32_t>& b) {
    const std::size_t common = a.size() < b.size() ? a.size() : b.size();
    for (std::size_t i = 0; i < common; ++i) {
        if (a[i] != b[i]) {
            return a[i] < b[i] ? -1 : 1;
        }
    }
    for (std::size_t i = common; i < a.size(); ++i) {
        if (a[i] != 0) {
            return 1;
        }
    }
    for (std::size_t i = common; i < b.size(); ++i) {
        if (b[i] != 0) {
            return -1;
        }
    }
    return 0;
}

}  // namespace base
