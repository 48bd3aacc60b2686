#include "base/json/json_reader.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <utility>
#include <vector>

#include "base/json/decimal_to_double.h"
#include "base/json/json_value_internals.h"
#include "base/string_util.h"
#include "base/utf_string_conversions.h"

// SSE2 is part of every x86-64 processor; elsewhere strings and indentation
// are passed a byte at a time.
#if defined(__SSE2__)
#include <emmintrin.h>
#define QZEKIT_JSON_SSE2 1
#endif

namespace base {

const char JSONReader::kInvalidEscape[] = "Invalid escape sequence.";
const char JSONReader::kSyntaxError[] = "Syntax error.";
const char JSONReader::kUnexpectedToken[] = "Unexpected token.";
const char JSONReader::kTrailingComma[] = "Trailing comma not allowed.";
const char JSONReader::kTooMuchNesting[] = "Too much nesting.";
const char JSONReader::kUnexpectedDataAfterRoot[] = "Unexpected data after root element.";
const char JSONReader::kUnsupportedEncoding[] = "Unsupported encoding. JSON must be UTF-8.";
const char JSONReader::kUnquotedDictionaryKey[] = "Dictionary keys must be quoted.";

namespace {

// Objects and lists together; the hundredth level is refused.
constexpr int kStackMaxDepth = 100;

enum Token {
    T_OBJECT_BEGIN,
    T_OBJECT_END,
    T_ARRAY_BEGIN,
    T_ARRAY_END,
    T_STRING,
    T_NUMBER,
    T_BOOL_TRUE,
    T_BOOL_FALSE,
    T_NULL,
    T_LIST_SEPARATOR,
    T_OBJECT_PAIR_SEPARATOR,
    T_END_OF_INPUT,
    T_INVALID_TOKEN,
};

// Bytes that end the quick scan of a string: the quote, the backslash and
// everything that is not ASCII.
struct StringStopTable {
    bool stop[256];
    constexpr StringStopTable() : stop() {
        for (int c = 0; c < 256; ++c) {
            stop[c] = c == '"' || c == '\\' || c >= 0x80;
        }
    }
};
constexpr StringStopTable kStringStop;

// Four hexadecimal digits at |p|, or -1.
int32_t ReadHex4(const char* p) {
    int32_t value = 0;
    for (int i = 0; i < 4; ++i) {
        int digit = HexDigitValue(p[i]);
        if (digit < 0) {
            return -1;
        }
        value = (value << 4) | digit;
    }
    return value;
}

// Surrogates, U+FDD0..U+FDEF and the last two code points of every plane
// are refused in text.
bool IsValidCodePoint(uint32_t cp) {
    return cp < 0xD800 || (cp >= 0xE000 && cp < 0xFDD0) ||
           (cp > 0xFDEF && cp <= 0x10FFFF && (cp & 0xFFFE) != 0xFFFE);
}

// Length of the well-formed, acceptable UTF-8 character that starts at
// |p| (a byte of 0x80 or more), or 0.
std::size_t NonAsciiCharLength(const unsigned char* p, const unsigned char* end) {
    unsigned char lead = p[0];
    std::size_t length;
    uint32_t cp;
    uint32_t min;
    if (lead < 0xC2) {
        // A continuation byte, or the lead of an overlong two-byte form.
        return 0;
    } else if (lead < 0xE0) {
        length = 2, cp = lead & 0x1F, min = 0x80;
    } else if (lead < 0xF0) {
        length = 3, cp = lead & 0x0F, min = 0x800;
    } else if (lead < 0xF5) {
        length = 4, cp = lead & 0x07, min = 0x10000;
    } else {
        return 0;
    }
    if (static_cast<std::size_t>(end - p) < length) {
        return 0;
    }
    for (std::size_t i = 1; i < length; ++i) {
        if ((p[i] & 0xC0) != 0x80) {
            return 0;
        }
        cp = (cp << 6) | (p[i] & 0x3F);
    }
    if (cp < min || !IsValidCodePoint(cp)) {
        return 0;
    }
    return length;
}

#if QZEKIT_JSON_SSE2
// Sixteen bytes from |p|, one bit per byte that is a quote, a backslash or
// not ASCII.
unsigned StringStops16(const char* p) {
    const __m128i chunk = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    const __m128i quotes = _mm_cmpeq_epi8(chunk, _mm_set1_epi8('"'));
    const __m128i backslashes = _mm_cmpeq_epi8(chunk, _mm_set1_epi8('\\'));
    // The high bit of a byte is set exactly when it isn't ASCII.
    return static_cast<unsigned>(
        _mm_movemask_epi8(_mm_or_si128(chunk, _mm_or_si128(quotes, backslashes))));
}

// Sixteen bytes from |p|, one bit per byte that is not a space.
unsigned NonSpaces16(const char* p) {
    const __m128i chunk = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    return ~static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(chunk, _mm_set1_epi8(' ')))) &
           0xFFFFu;
}

// Passes sixteen bytes at a time while |Marks| marks none of them. Stops at
// the first marked byte, or where fewer than sixteen are left.
template <unsigned (*Marks)(const char*)>
const char* SkipUnmarked(const char* p, const char* end) {
    while (end - p >= 16) {
        const unsigned marked = Marks(p);
        if (marked != 0) {
            return p + __builtin_ctz(marked);
        }
        p += 16;
    }
    return p;
}
#endif

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

// Eight bytes at a time, loaded with memcpy, so that neither alignment nor
// aliasing matters.
uint64_t LoadWord(const char* p) {
    uint64_t word;
    std::memcpy(&word, p, sizeof word);
    return word;
}

// One bit set in each byte of |word| that is not a digit, among others; the
// lowest set bit is always in the first such byte. A digit is 0x30 to 0x39:
// its high half is 3, and adding 6 leaves it 3. An add can carry into the
// next byte only from a byte that is not a digit, so only later bytes suffer.
uint64_t NonDigits(uint64_t word) {
    return ((word & 0xF0F0F0F0F0F0F0F0ull) ^ 0x3030303030303030ull) |
           (((word + 0x0606060606060606ull) & 0xF0F0F0F0F0F0F0F0ull) ^ 0x3030303030303030ull);
}

// The value of eight digits, the first in the lowest byte: pairs, then
// fours, then the eight are combined with one multiplication each.
uint32_t EightDigitsValue(uint64_t word) {
    word -= 0x3030303030303030ull;
    word = (word * 10) + (word >> 8);
    word = (((word & 0x000000FF000000FFull) * (100 + (1000000ull << 32))) +
            (((word >> 16) & 0x000000FF000000FFull) * (1 + (10000ull << 32)))) >>
           32;
    return static_cast<uint32_t>(word);
}

constexpr uint64_t kPowersOfTen[9] = {1,      10,      100,      1000,     10000,
                                      100000, 1000000, 10000000, 100000000};

// Passes the digits at |p|, adding them to |value| in decimal. |value| is
// only exact while it has at most 19 digits; the caller counts them.
inline const char* ScanDigits(const char* p, const char* end, uint64_t* value) {
    uint64_t v = *value;
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    while (end - p >= 8) {
        const uint64_t word = LoadWord(p);
        const uint64_t others = NonDigits(word);
        if (others == 0) {
            v = v * 100000000 + EightDigitsValue(word);
            p += 8;
            continue;
        }
        // The digits before the first other byte, moved to the top of the
        // word behind as many "0"s.
        const unsigned count = static_cast<unsigned>(__builtin_ctzll(others)) / 8;
        if (count != 0) {
            const uint64_t padded =
                (word << (8 * (8 - count))) | (0x3030303030303030ull >> (8 * count));
            v = v * kPowersOfTen[count] + EightDigitsValue(padded);
        }
        *value = v;
        return p + count;
    }
#endif
    while (p < end && IsDigit(*p)) {
        v = v * 10 + static_cast<uint64_t>(*p - '0');
        ++p;
    }
    *value = v;
    return p;
}

class Parser {
public:
    Parser(const char* text, std::size_t length, int32_t options)
        : start_(text), pos_(text), end_(text + length), options_(options) {}
    ~Parser() {
        // Elements of lists left unfinished by an error.
        for (Value* value : stack_) {
            delete value;
        }
    }

    Value* Parse();

    int32_t error_code() const { return error_code_; }
    int32_t error_line() const { return error_line_; }
    int32_t error_column() const { return error_column_; }
    bool borrowed() const { return borrowed_count_ != 0; }

private:
    std::size_t Index() const { return static_cast<std::size_t>(pos_ - start_); }

    // The column is counted from the line start, plus |adjust|.
    void ReportError(int32_t code, int adjust) {
        error_code_ = code;
        error_line_ = line_;
        error_column_ = static_cast<int32_t>(Index() - line_start_) + adjust;
    }

    void SkipWhitespaceAndComments();
    Token NextToken();
    Token TokenAt() const;

    Value* ParseToken(Token token);
    Value* ConsumeDictionary();
    Value* ConsumeList();
    Value* ConsumeString();
    // Reads the string at pos_. Fills |view| and returns true when the text
    // can be used as it stands; otherwise builds |out|. False on error.
    bool ScanString(const char** view, std::size_t* view_length, std::string* out, bool* plain);
    bool DecodeEscapes(const char* begin, const char* p, std::string* out);
    Value* ConsumeNumber();
    Value* ConsumeLiteral();

    const char* const start_;
    const char* pos_;
    const char* const end_;
    const int32_t options_;
    int depth_ = 0;
    int32_t line_ = 1;
    std::size_t line_start_ = 0;
    int32_t error_code_ = JSONReader::JSON_NO_ERROR;
    int32_t error_line_ = 0;
    int32_t error_column_ = 0;
    // The skip that the look-ahead after a number made: the skip that
    // follows from the same place jumps to where it ended.
    const char* skipped_from_ = nullptr;
    const char* skipped_to_ = nullptr;
    int32_t skipped_line_ = 0;
    std::size_t skipped_line_start_ = 0;
    // String nodes made so far that point into the text. A level whose
    // count moved while it was read holds one of them somewhere below.
    std::size_t borrowed_count_ = 0;
    // Elements of the lists being read, innermost last. Each list is made
    // at its "]" with exactly the room it needs.
    std::vector<Value*> stack_;
};

void Parser::SkipWhitespaceAndComments() {
    if (pos_ == skipped_from_) {
        pos_ = skipped_to_;
        line_ = skipped_line_;
        line_start_ = skipped_line_start_;
        skipped_from_ = nullptr;
        return;
    }
    while (pos_ < end_) {
        // Indentation comes in runs: pass them without the switch.
#if QZEKIT_JSON_SSE2
        pos_ = SkipUnmarked<NonSpaces16>(pos_, end_);
#endif
        if (pos_ == end_) {
            return;
        }
        while (*pos_ == ' ' || *pos_ == '\t') {
            if (++pos_ == end_) {
                return;
            }
        }
        switch (*pos_) {
            case '\r':
            case '\n':
                // "\r\n" is one line end.
                if (!(*pos_ == '\n' && pos_ > start_ && pos_[-1] == '\r')) {
                    ++line_;
                }
                line_start_ = Index();
                ++pos_;
                break;
            case ' ':
            case '\t':
                ++pos_;
                break;
            case '/':
                if (pos_ + 1 < end_ && pos_[1] == '/') {
                    pos_ += 2;
                    while (pos_ < end_ && *pos_ != '\n' && *pos_ != '\r') {
                        ++pos_;
                    }
                } else if (pos_ + 1 < end_ && pos_[1] == '*') {
                    pos_ += 2;
                    while (pos_ < end_ && !(*pos_ == '*' && pos_ + 1 < end_ && pos_[1] == '/')) {
                        ++pos_;
                    }
                    // Past the "*/", or at the end when there is none.
                    pos_ = pos_ < end_ ? pos_ + 2 : end_;
                } else {
                    // A slash on its own is passed over.
                    ++pos_;
                }
                break;
            default:
                return;
        }
    }
}

Token Parser::TokenAt() const {
    if (pos_ >= end_) {
        return T_END_OF_INPUT;
    }
    switch (*pos_) {
        case '{':
            return T_OBJECT_BEGIN;
        case '}':
            return T_OBJECT_END;
        case '[':
            return T_ARRAY_BEGIN;
        case ']':
            return T_ARRAY_END;
        case '"':
            return T_STRING;
        case '-':
        case '0':
        case '1':
        case '2':
        case '3':
        case '4':
        case '5':
        case '6':
        case '7':
        case '8':
        case '9':
            return T_NUMBER;
        case 't':
            return T_BOOL_TRUE;
        case 'f':
            return T_BOOL_FALSE;
        case 'n':
            return T_NULL;
        case ',':
            return T_LIST_SEPARATOR;
        case ':':
            return T_OBJECT_PAIR_SEPARATOR;
        default:
            return T_INVALID_TOKEN;
    }
}

Token Parser::NextToken() {
    // Most tokens follow the last one directly.
    if (pos_ < end_ && (static_cast<unsigned char>(*pos_) > ' ') && *pos_ != '/' &&
        pos_ != skipped_from_) {
        return TokenAt();
    }
    SkipWhitespaceAndComments();
    return TokenAt();
}

Value* Parser::Parse() {
    if (end_ - start_ >= 3 && static_cast<unsigned char>(start_[0]) == 0xEF &&
        static_cast<unsigned char>(start_[1]) == 0xBB &&
        static_cast<unsigned char>(start_[2]) == 0xBF) {
        pos_ += 3;
    }
    std::unique_ptr<Value> root(ParseToken(NextToken()));
    if (!root) {
        return nullptr;
    }
    // The position rests on the value's last character.
    ++pos_;
    if (NextToken() != T_END_OF_INPUT) {
        ReportError(JSONReader::JSON_UNEXPECTED_DATA_AFTER_ROOT, 1);
        return nullptr;
    }
    return root.release();
}

Value* Parser::ParseToken(Token token) {
    switch (token) {
        case T_OBJECT_BEGIN:
            return ConsumeDictionary();
        case T_ARRAY_BEGIN:
            return ConsumeList();
        case T_STRING:
            return ConsumeString();
        case T_NUMBER:
            return ConsumeNumber();
        case T_BOOL_TRUE:
        case T_BOOL_FALSE:
        case T_NULL:
            return ConsumeLiteral();
        default:
            ReportError(JSONReader::JSON_UNEXPECTED_TOKEN, 1);
            return nullptr;
    }
}

Value* Parser::ConsumeDictionary() {
    // Checked before going any deeper, so deep input can't exhaust the stack.
    if (++depth_ >= kStackMaxDepth) {
        ReportError(JSONReader::JSON_TOO_MUCH_NESTING, 1);
        --depth_;
        return nullptr;
    }
    std::unique_ptr<DictionaryValue> dictionary(new DictionaryValue());
    const std::size_t borrowed_before = borrowed_count_;
    ++pos_;
    Token token = NextToken();
    while (token != T_OBJECT_END) {
        if (token != T_STRING) {
            ReportError(JSONReader::JSON_UNQUOTED_DICTIONARY_KEY, 1);
            return nullptr;
        }
        // A key is always a copy, built in place.
        const char* view = nullptr;
        std::size_t view_length = 0;
        bool plain = false;
        std::string decoded;
        if (!ScanString(&view, &view_length, &decoded, &plain)) {
            return nullptr;
        }
        std::string key = plain ? std::string(view, view_length) : std::move(decoded);
        ++pos_;
        if (NextToken() != T_OBJECT_PAIR_SEPARATOR) {
            ReportError(JSONReader::JSON_SYNTAX_ERROR, 1);
            return nullptr;
        }
        ++pos_;
        Value* value = ParseToken(NextToken());
        if (value == nullptr) {
            return nullptr;
        }
        // Keys are literal here, dots included; a repeated key replaces.
        dictionary->SetWithoutPathExpansion(std::move(key), value);

        ++pos_;
        token = NextToken();
        if (token == T_LIST_SEPARATOR) {
            ++pos_;
            token = NextToken();
            if (token == T_OBJECT_END && !(options_ & JSONReader::JSON_ALLOW_TRAILING_COMMAS)) {
                ReportError(JSONReader::JSON_TRAILING_COMMA, 1);
                return nullptr;
            }
        } else if (token != T_OBJECT_END) {
            ReportError(JSONReader::JSON_SYNTAX_ERROR, 0);
            return nullptr;
        }
    }
    --depth_;
    if (borrowed_count_ != borrowed_before) {
        internal::TextBorrowing::Mark(dictionary.get());
    }
    return dictionary.release();
}

Value* Parser::ConsumeList() {
    if (++depth_ >= kStackMaxDepth) {
        ReportError(JSONReader::JSON_TOO_MUCH_NESTING, 1);
        --depth_;
        return nullptr;
    }
    if (stack_.capacity() == 0) {
        // Enough for most texts, so that the stack seldom grows.
        stack_.reserve(64);
    }
    const std::size_t first = stack_.size();
    const std::size_t borrowed_before = borrowed_count_;
    ++pos_;
    Token token = NextToken();
    while (token != T_ARRAY_END) {
        Value* value = ParseToken(token);
        if (value == nullptr) {
            return nullptr;
        }
        stack_.push_back(value);

        ++pos_;
        token = NextToken();
        if (token == T_LIST_SEPARATOR) {
            ++pos_;
            token = NextToken();
            if (token == T_ARRAY_END && !(options_ & JSONReader::JSON_ALLOW_TRAILING_COMMAS)) {
                ReportError(JSONReader::JSON_TRAILING_COMMA, 1);
                return nullptr;
            }
        } else if (token != T_ARRAY_END) {
            ReportError(JSONReader::JSON_SYNTAX_ERROR, 0);
            return nullptr;
        }
    }
    --depth_;
    auto* list = new ListValue();
    list->Reserve(stack_.size() - first);
    for (std::size_t i = first; i < stack_.size(); ++i) {
        list->Append(stack_[i]);
    }
    stack_.resize(first);
    if (borrowed_count_ != borrowed_before) {
        internal::TextBorrowing::Mark(list);
    }
    return list;
}

bool Parser::ScanString(const char** view, std::size_t* view_length, std::string* out,
                        bool* plain) {
    const char* begin = pos_ + 1;
    const char* p = begin;
#if QZEKIT_JSON_SSE2
    p = SkipUnmarked<StringStops16>(p, end_);
#endif
    // With SSE2, only the last few bytes of the text are left to this loop.
    while (p < end_ && !kStringStop.stop[static_cast<unsigned char>(*p)]) {
        ++p;
    }
    if (p < end_ && *p == '"') {
        *view = begin;
        *view_length = static_cast<std::size_t>(p - begin);
        *plain = true;
        pos_ = p;
        return true;
    }
    *plain = false;
    return DecodeEscapes(begin, p, out);
}

// Continues a string from |p|, where the quick scan stopped, building the
// value in |out|. Leaves pos_ on the closing quote.
bool Parser::DecodeEscapes(const char* begin, const char* p, std::string* out) {
    const auto* uend = reinterpret_cast<const unsigned char*>(end_);
    // Characters that go in as they stand are appended a run at a time:
    // control characters and line ends are kept too.
    const char* run = begin;
    while (p < end_) {
#if QZEKIT_JSON_SSE2
        p = SkipUnmarked<StringStops16>(p, end_);
        if (p == end_) {
            break;
        }
#endif
        unsigned char c = static_cast<unsigned char>(*p);
        if (c < 0x80 && c != '"' && c != '\\') {
            ++p;
            continue;
        }
        if (c >= 0x80) {
            std::size_t length =
                NonAsciiCharLength(reinterpret_cast<const unsigned char*>(p), uend);
            if (length == 0) {
                pos_ = p;
                ReportError(JSONReader::JSON_UNSUPPORTED_ENCODING, 1);
                return false;
            }
            p += length;
            continue;
        }
        out->append(run, static_cast<std::size_t>(p - run));
        if (c == '"') {
            pos_ = p;
            return true;
        }
        // An escape. pos_ goes to the character after the backslash.
        pos_ = p + 1;
        if (pos_ >= end_) {
            ReportError(JSONReader::JSON_INVALID_ESCAPE, 0);
            return false;
        }
        switch (*pos_) {
            case '"':
            case '/':
            case '\\':
                out->push_back(*pos_);
                break;
            case 'b':
                out->push_back('\b');
                break;
            case 'f':
                out->push_back('\f');
                break;
            case 'n':
                out->push_back('\n');
                break;
            case 'r':
                out->push_back('\r');
                break;
            case 't':
                out->push_back('\t');
                break;
            case 'v':
                out->push_back('\v');
                break;
            case 'x': {
                int high = end_ - pos_ > 2 ? HexDigitValue(pos_[1]) : -1;
                int low = high >= 0 ? HexDigitValue(pos_[2]) : -1;
                if (low < 0) {
                    ReportError(JSONReader::JSON_INVALID_ESCAPE, 1);
                    return false;
                }
                // The byte goes in as it is, whatever it is.
                out->push_back(static_cast<char>((high << 4) | low));
                pos_ += 2;
                break;
            }
            case 'u': {
                int32_t unit = end_ - pos_ > 4 ? ReadHex4(pos_ + 1) : -1;
                if (unit < 0 || (unit >= 0xDC00 && unit <= 0xDFFF)) {
                    ReportError(JSONReader::JSON_INVALID_ESCAPE, 1);
                    return false;
                }
                uint32_t cp = static_cast<uint32_t>(unit);
                std::size_t used = 4;
                if (unit >= 0xD800 && unit <= 0xDBFF) {
                    // The low half must follow at once.
                    int32_t low = -1;
                    if (end_ - pos_ > 10 && pos_[5] == '\\' && pos_[6] == 'u') {
                        low = ReadHex4(pos_ + 7);
                    }
                    if (low < 0xDC00 || low > 0xDFFF) {
                        ReportError(JSONReader::JSON_INVALID_ESCAPE, 1);
                        return false;
                    }
                    cp = 0x10000 + ((cp - 0xD800) << 10) + static_cast<uint32_t>(low - 0xDC00);
                    used = 10;
                }
                if (!IsValidCodePoint(cp)) {
                    ReportError(JSONReader::JSON_INVALID_ESCAPE, 1);
                    return false;
                }
                // "\u0000" is accepted and adds nothing.
                if (cp != 0) {
                    AppendUTF8(out, cp);
                }
                pos_ += used;
                break;
            }
            default:
                ReportError(JSONReader::JSON_INVALID_ESCAPE, 0);
                return false;
        }
        p = pos_ + 1;
        run = p;
    }
    pos_ = end_;
    ReportError(JSONReader::JSON_SYNTAX_ERROR, 0);
    return false;
}

Value* Parser::ConsumeString() {
    const char* view = nullptr;
    std::size_t view_length = 0;
    std::string decoded;
    bool plain = false;
    if (!ScanString(&view, &view_length, &decoded, &plain)) {
        return nullptr;
    }
    if (!plain) {
        return new StringValue(std::move(decoded));
    }
    if ((options_ & JSONReader::JSON_DETACHABLE_CHILDREN) ||
        view_length > std::numeric_limits<uint32_t>::max()) {
        return new StringValue(std::string(view, view_length));
    }
    ++borrowed_count_;
    return new internal::JSONStringValue(view, static_cast<uint32_t>(view_length));
}

Value* Parser::ConsumeNumber() {
    const char* number_start = pos_;
    const char* p = pos_;
    if (*p == '-') {
        ++p;
    }
    // The digits before and after the point, as one integer.
    uint64_t significand = 0;
    const char* digits = p;
    p = ScanDigits(p, end_, &significand);
    std::size_t integer_digits = static_cast<std::size_t>(p - digits);
    if (integer_digits == 0 || (integer_digits > 1 && *digits == '0')) {
        pos_ = p;
        ReportError(JSONReader::JSON_SYNTAX_ERROR, 1);
        return nullptr;
    }
    bool integral = true;
    std::size_t fraction_digits = 0;
    if (p < end_ && *p == '.') {
        ++p;
        const char* fraction = p;
        p = ScanDigits(p, end_, &significand);
        if (p == fraction) {
            pos_ = p;
            ReportError(JSONReader::JSON_SYNTAX_ERROR, 1);
            return nullptr;
        }
        fraction_digits = static_cast<std::size_t>(p - fraction);
        integral = false;
    }
    int64_t exponent10 = 0;
    if (p < end_ && (*p == 'e' || *p == 'E')) {
        ++p;
        const bool negative_exponent = p < end_ && *p == '-';
        if (p < end_ && (*p == '+' || *p == '-')) {
            ++p;
        }
        const char* exponent = p;
        while (p < end_ && IsDigit(*p)) {
            // Far beyond any double either way, and beyond the leading zeros
            // of any text under 100 MB; the long path decides.
            exponent10 = exponent10 < 100000000 ? exponent10 * 10 + (*p - '0') : exponent10;
            ++p;
        }
        if (p == exponent) {
            pos_ = p;
            ReportError(JSONReader::JSON_SYNTAX_ERROR, 1);
            return nullptr;
        }
        exponent10 = negative_exponent ? -exponent10 : exponent10;
        integral = false;
    }
    const char* number_end = p;

    // Only a delimiter or the end may follow. The look-ahead leaves the line
    // count as it was; the skip after the number takes over where it ended,
    // lines included, instead of passing the same text again.
    pos_ = number_end;
    const int32_t line = line_;
    const std::size_t line_start = line_start_;
    Token next = NextToken();
    if (next != T_OBJECT_END && next != T_ARRAY_END && next != T_LIST_SEPARATOR &&
        next != T_END_OF_INPUT) {
        ReportError(JSONReader::JSON_SYNTAX_ERROR, 1);
        return nullptr;
    }
    skipped_from_ = number_end;
    skipped_to_ = pos_;
    skipped_line_ = line_;
    skipped_line_start_ = line_start_;
    line_ = line;
    line_start_ = line_start;
    pos_ = number_end - 1;

    const bool negative = *number_start == '-';
    if (integral && integer_digits <= 10) {
        const int64_t value =
            negative ? -static_cast<int64_t>(significand) : static_cast<int64_t>(significand);
        if (value >= std::numeric_limits<int32_t>::min() &&
            value <= std::numeric_limits<int32_t>::max()) {
            return new FundamentalValue(static_cast<int32_t>(value));
        }
    }

    double value = 0;
    if (integer_digits + fraction_digits <= 19 &&
        internal::DecimalToDouble(significand, exponent10 - static_cast<int64_t>(fraction_digits),
                                  negative, &value)) {
        return new FundamentalValue(value);
    }
    auto result = std::from_chars(number_start, number_end, value);
    if (result.ec == std::errc::result_out_of_range) {
        // Too small rounds to zero; too large is refused below. The number
        // is too small when its leading digit, moved by the exponent, stands
        // after the point. |magnitude| is where that digit stands now.
        int64_t magnitude = *digits == '0' ? 0 : static_cast<int64_t>(integer_digits);
        if (*digits == '0' && fraction_digits != 0) {
            // The zeros after "0." come first; the exponent letter ends them.
            for (const char* d = digits + 2; d < number_end && *d == '0'; ++d) {
                --magnitude;
            }
        }
        if (magnitude + exponent10 <= 0) {
            value = negative ? -0.0 : 0.0;
        } else {
            value = std::numeric_limits<double>::infinity();
        }
    } else if (result.ec != std::errc() || result.ptr != number_end) {
        value = std::numeric_limits<double>::infinity();
    }
    if (!std::isfinite(value)) {
        ReportError(JSONReader::JSON_SYNTAX_ERROR, 1);
        return nullptr;
    }
    return new FundamentalValue(value);
}

Value* Parser::ConsumeLiteral() {
    const char* literal = *pos_ == 't' ? "true" : (*pos_ == 'f' ? "false" : "null");
    std::size_t length = std::strlen(literal);
    if (static_cast<std::size_t>(end_ - pos_) < length || std::memcmp(pos_, literal, length) != 0) {
        ReportError(JSONReader::JSON_SYNTAX_ERROR, 1);
        return nullptr;
    }
    pos_ += length - 1;
    if (*literal == 'n') {
        return new Value();
    }
    return new FundamentalValue(*literal == 't');
}

}  // namespace

JSONReader::JSONReader(int32_t options) : options_(options) {}

JSONReader::~JSONReader() = default;

std::unique_ptr<Value> JSONReader::Read(const char* text, std::size_t length) {
    return JSONReader(JSON_PARSE_RFC).ReadToValue(text, length);
}

std::unique_ptr<Value> JSONReader::Read(const std::string& text) {
    return Read(text.data(), text.size());
}

std::unique_ptr<Value> JSONReader::ReadAndReturnError(const char* text, std::size_t length,
                                                      int32_t options, int32_t* error_code,
                                                      std::string* error_message,
                                                      int32_t* error_line, int32_t* error_column) {
    JSONReader reader(options);
    std::unique_ptr<Value> root = reader.ReadToValue(text, length);
    if (!root) {
        if (error_code) {
            *error_code = reader.error_code_;
        }
        if (error_message) {
            *error_message = reader.GetErrorMessage();
        }
        if (error_line) {
            *error_line = reader.error_line_;
        }
        if (error_column) {
            *error_column = reader.error_column_;
        }
    }
    return root;
}

std::unique_ptr<Value> JSONReader::ReadAndReturnError(const std::string& text, int32_t options,
                                                      int32_t* error_code,
                                                      std::string* error_message,
                                                      int32_t* error_line, int32_t* error_column) {
    return ReadAndReturnError(text.data(), text.size(), options, error_code, error_message,
                              error_line, error_column);
}

std::string JSONReader::ErrorCodeToString(int32_t error_code) {
    switch (error_code) {
        case JSON_INVALID_ESCAPE:
            return kInvalidEscape;
        case JSON_SYNTAX_ERROR:
            return kSyntaxError;
        case JSON_UNEXPECTED_TOKEN:
            return kUnexpectedToken;
        case JSON_TRAILING_COMMA:
            return kTrailingComma;
        case JSON_TOO_MUCH_NESTING:
            return kTooMuchNesting;
        case JSON_UNEXPECTED_DATA_AFTER_ROOT:
            return kUnexpectedDataAfterRoot;
        case JSON_UNSUPPORTED_ENCODING:
            return kUnsupportedEncoding;
        case JSON_UNQUOTED_DICTIONARY_KEY:
            return kUnquotedDictionaryKey;
        default:
            return std::string();
    }
}

std::string JSONReader::FormatErrorMessage(int32_t line, int32_t column, const std::string& text) {
    if (line == 0 && column == 0) {
        return text;
    }
    char prefix[64];
    std::snprintf(prefix, sizeof prefix, "Line: %i, column: %i, ", line, column);
    return prefix + text;
}

std::string JSONReader::GetErrorMessage() const {
    return FormatErrorMessage(error_line_, error_column_, ErrorCodeToString(error_code_));
}

std::unique_ptr<Value> JSONReader::ReadToValue(const char* text, std::size_t length) {
    error_code_ = JSON_NO_ERROR;
    error_line_ = 0;
    error_column_ = 0;
    if (text == nullptr) {
        length = 0;
        text = "";
    }

    const bool detachable = (options_ & JSON_DETACHABLE_CHILDREN) != 0;
    // The tree's strings point into this one copy of the text.
    std::unique_ptr<char[]> copy;
    const char* input = text;
    if (!detachable) {
        copy.reset(new char[length + 1]);
        std::memcpy(copy.get(), text, length);
        copy[length] = '\0';
        input = copy.get();
    }

    Parser parser(input, length, options_);
    std::unique_ptr<Value> root(parser.Parse());
    if (!root) {
        error_code_ = parser.error_code();
        error_line_ = parser.error_line();
        error_column_ = parser.error_column();
        return nullptr;
    }
    if (detachable || !parser.borrowed()) {
        // Nothing points into the copy: it can go now.
        return root;
    }
    switch (root->GetType()) {
        case Value::TYPE_DICTIONARY: {
            DictionaryValue* parsed = nullptr;
            root->GetAsDictionary(&parsed);
            return std::make_unique<internal::DictionaryHiddenRootValue>(std::move(copy), parsed);
        }
        case Value::TYPE_LIST: {
            ListValue* parsed = nullptr;
            root->GetAsList(&parsed);
            return std::make_unique<internal::ListHiddenRootValue>(std::move(copy), parsed);
        }
        default:
            // A lone string root: give it its own text.
            return root->CreateDeepCopy();
    }
}

}  // namespace base
