#pragma once

// Reads JSON text into a value tree.
//
// Beyond strict JSON: comments are always skipped, strings may hold raw
// control characters and the escapes "\v" and "\xHH", a repeated key keeps
// its last value, and nesting stops at 99 levels.
//
// Unless JSON_DETACHABLE_CHILDREN is given, the returned tree keeps one copy
// of the text and plain strings point into it. The tree stays valid on its
// own; nodes taken out of its root by Swap or removal come out as copies.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "base/values.h"
#include "platform/export.h"

namespace base {

class QZEKIT_EXPORT JSONReader {
public:
    enum Options : int32_t {
        JSON_PARSE_RFC = 0,
        JSON_ALLOW_TRAILING_COMMAS = 1 << 0,
        // No borrowing: every string is a node of its own.
        JSON_DETACHABLE_CHILDREN = 1 << 1,
    };

    enum JsonParseError : int32_t {
        JSON_NO_ERROR = 0,
        JSON_INVALID_ESCAPE = 1,
        JSON_SYNTAX_ERROR = 2,
        JSON_UNEXPECTED_TOKEN = 3,
        JSON_TRAILING_COMMA = 4,
        JSON_TOO_MUCH_NESTING = 5,
        JSON_UNEXPECTED_DATA_AFTER_ROOT = 6,
        JSON_UNSUPPORTED_ENCODING = 7,
        JSON_UNQUOTED_DICTIONARY_KEY = 8,
    };

    static const char kInvalidEscape[];
    static const char kSyntaxError[];
    static const char kUnexpectedToken[];
    static const char kTrailingComma[];
    static const char kTooMuchNesting[];
    static const char kUnexpectedDataAfterRoot[];
    static const char kUnsupportedEncoding[];
    static const char kUnquotedDictionaryKey[];

    explicit JSONReader(int32_t options = JSON_PARSE_RFC);
    ~JSONReader();

    // Parses with options 0. Null on any failure.
    static std::unique_ptr<Value> Read(const char* text, std::size_t length);
    static std::unique_ptr<Value> Read(const std::string& text);

    // On failure fills each output whose pointer is not null.
    static std::unique_ptr<Value> ReadAndReturnError(const char* text, std::size_t length,
                                                     int32_t options, int32_t* error_code,
                                                     std::string* error_message,
                                                     int32_t* error_line = nullptr,
                                                     int32_t* error_column = nullptr);
    static std::unique_ptr<Value> ReadAndReturnError(const std::string& text, int32_t options,
                                                     int32_t* error_code,
                                                     std::string* error_message,
                                                     int32_t* error_line = nullptr,
                                                     int32_t* error_column = nullptr);

    // The fixed text of an error code; empty for JSON_NO_ERROR.
    static std::string ErrorCodeToString(int32_t error_code);
    // The text alone when line and column are both 0, else with the position.
    static std::string FormatErrorMessage(int32_t line, int32_t column, const std::string& text);

    // Parses one text with this reader's options; the error fields below
    // describe the last failure.
    std::unique_ptr<Value> ReadToValue(const char* text, std::size_t length);

    int32_t error_code() const { return error_code_; }
    int32_t error_line() const { return error_line_; }
    int32_t error_column() const { return error_column_; }
    std::string GetErrorMessage() const;

private:
    int32_t options_;
    int32_t error_code_ = JSON_NO_ERROR;
    int32_t error_line_ = 0;
    int32_t error_column_ = 0;
};

}  // namespace base
