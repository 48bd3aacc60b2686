#include "base/files/file_path.h"

#include <vector>

namespace base {
namespace {

bool IsAsciiLetter(wchar_t c) {
    return (c >= L'A' && c <= L'Z') || (c >= L'a' && c <= L'z');
}

// "C:" and the like at the start of the text.
bool StartsWithDrive(const std::wstring& text) {
    return text.size() >= 2 && IsAsciiLetter(text[0]) && text[1] == L':';
}

std::wstring CutAtNul(const std::wstring& text) {
    std::size_t nul = text.find(L'\0');
    return nul == std::wstring::npos ? text : text.substr(0, nul);
}

// Drops trailing separators, but never the one that makes a path a root:
// "/" stays, "C:\\" stays, and "\\\\" (the start of a network path) keeps
// both of its separators.
void StripTrailingSeparators(std::wstring* text) {
    const std::size_t floor = StartsWithDrive(*text) ? 3 : 1;
    while (text->size() > floor && FilePath::IsSeparator(text->back())) {
        if (text->size() == 2 && FilePath::IsSeparator((*text)[0])) {
            break;
        }
        text->pop_back();
    }
}

}  // namespace

FilePath::FilePath() = default;

FilePath::FilePath(const StringType& path) : path_(CutAtNul(path)) {}

FilePath::FilePath(const CharType* text, std::size_t length) {
    if (!text) {
        return;
    }
    std::size_t n = 0;
    while (n < length && text[n] != L'\0') {
        ++n;
    }
    path_.assign(text, n);
}

FilePath::FilePath(const FilePath& other) = default;
FilePath& FilePath::operator=(const FilePath& other) = default;
FilePath::~FilePath() = default;

FilePath FilePath::Append(const StringType& component) const {
    const std::wstring appended = CutAtNul(component);
    if (path_ == kCurrentDirectory) {
        return FilePath(appended);
    }
    std::wstring result = path_;
    StripTrailingSeparators(&result);
    if (!appended.empty() && !result.empty()) {
        const bool bareDrive = result.size() == 2 && StartsWithDrive(result);
        // "C:" + "x" is "C:x", relative to the drive's current directory.
        if (!IsSeparator(result.back()) && !bareDrive) {
            result.push_back(kSeparator);
        }
    }
    result.append(appended);
    return FilePath(result);
}

FilePath FilePath::Append(const FilePath& component) const {
    return Append(component.value());
}

FilePath FilePath::AppendASCII(const std::string& component) const {
    std::wstring wide;
    wide.reserve(component.size());
    for (char c : component) {
        wide.push_back(static_cast<wchar_t>(static_cast<unsigned char>(c)));
    }
    return Append(wide);
}

bool FilePath::ReferencesParent() const {
    std::size_t start = 0;
    while (start <= path_.size()) {
        std::size_t end = start;
        while (end < path_.size() && !IsSeparator(path_[end])) {
            ++end;
        }
        const std::wstring component = path_.substr(start, end - start);
        if (component.find_first_not_of(L". \n\r\t") == std::wstring::npos &&
            component.find(kParentDirectory) != std::wstring::npos) {
            return true;
        }
        start = end + 1;
    }
    return false;
}

}  // namespace base
