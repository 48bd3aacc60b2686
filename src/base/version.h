#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/export.h"

namespace base {

// A dotted version text as a list of unsigned 32-bit numbers.
//
// The text is split at every "." with nothing trimmed. Each piece must be a
// decimal number that fits 32 bits, written with digits only (no sign, no
// blank); the first piece must also have no leading zero ("0" itself is
// fine), later pieces may. Any other text is invalid and gives an empty list.
class QZEKIT_EXPORT Version {
public:
    // Invalid, with no numbers.
    Version();
    explicit Version(const std::string& text);
    explicit Version(std::vector<uint32_t> components);
    Version(const Version& other);
    Version& operator=(const Version& other);
    ~Version();

    bool IsValid() const { return !components_.empty(); }
    const std::vector<uint32_t>& components() const { return components_; }
    // The numbers joined with "."; empty when invalid.
    std::string GetString() const;

    // -1, 0 or 1. Invalid versions count as having no numbers.
    int CompareTo(const Version& other) const;

    // The numbers of `text`, or an empty list when it is invalid.
    static std::vector<uint32_t> Parse(const std::string& text);

    // Number by number from the left; the first pair that differs decides.
    // Numbers past the end of the shorter list count only when not zero, so
    // an empty list equals "0" and "0.0". Answers -1, 0 or 1.
    static int Compare(const std::vector<uint32_t>& a, const std::vector<uint32_t>& b);

    bool operator==(const Version& other) const { return CompareTo(other) == 0; }
    bool operator!=(const Version& other) const { return CompareTo(other) != 0; }
    bool operator<(const Version& other) const { return CompareTo(other) < 0; }
    bool operator<=(const Version& other) const { return CompareTo(other) <= 0; }
    bool operator>(const Version& other) const { return CompareTo(other) > 0; }
    bool operator>=(const Version& other) const { return CompareTo(other) >= 0; }

private:
    std::vector<uint32_t> components_;
};

}  // namespace base
