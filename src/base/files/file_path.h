#pragma once

#include <cstddef>
#include <string>

#include "platform/export.h"

namespace base {

// A path as wide text. Nothing here touches the disk: the type only keeps
// the text and knows how separators and drive letters are written.
//
// Both "\\" and "/" are read as separators on every system, so paths written
// for Windows work unchanged elsewhere. The separator that Append adds is
// "\\" on every system, so one installation gives the same path texts (and
// log lines) everywhere; the POSIX layer maps "\\" to "/" at the system call.
class QZEKIT_EXPORT FilePath {
public:
    using StringType = std::wstring;
    using CharType = wchar_t;

    static constexpr CharType kSeparator = L'\\';
    static constexpr CharType kCurrentDirectory[] = L".";
    static constexpr CharType kParentDirectory[] = L"..";

    static bool IsSeparator(CharType c) { return c == L'\\' || c == L'/'; }

    FilePath();
    // The text up to its first NUL, if it holds one.
    explicit FilePath(const StringType& path);
    FilePath(const CharType* text, std::size_t length);
    FilePath(const FilePath& other);
    FilePath& operator=(const FilePath& other);
    ~FilePath();

    const StringType& value() const { return path_; }
    bool empty() const { return path_.empty(); }

    // Joins `component` to this path with one separator between them. The
    // component goes in as it stands: it is neither checked nor normalised.
    FilePath Append(const StringType& component) const;
    FilePath Append(const FilePath& component) const;
    // `component` is 8-bit text; each byte becomes one wide character.
    FilePath AppendASCII(const std::string& component) const;

    // True when a component is "..", also in the forms with trailing dots
    // or blanks that Windows quietly reduces to "..".
    bool ReferencesParent() const;

    bool operator==(const FilePath& other) const { return path_ == other.path_; }
    bool operator!=(const FilePath& other) const { return path_ != other.path_; }
    bool operator<(const FilePath& other) const { return path_ < other.path_; }

private:
    StringType path_;
};

}  // namespace base
