#include "base/json/json_reader.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <memory>
#include <string>

#include "base/values.h"

namespace {

using base::DictionaryValue;
using base::JSONReader;
using base::ListValue;
using base::Value;

struct Failure {
    int32_t code = -1;
    std::string message;
    int32_t line = -1;
    int32_t column = -1;
};

// Parses text that must fail and returns what the reader reported.
Failure ReadFailure(const std::string& text, int32_t options = 0) {
    Failure f;
    std::unique_ptr<Value> root =
        JSONReader::ReadAndReturnError(text, options, &f.code, &f.message, &f.line, &f.column);
    EXPECT_EQ(root, nullptr) << text;
    return f;
}

std::unique_ptr<Value> ReadOk(const std::string& text, int32_t options = 0) {
    int32_t code = -1;
    std::string message;
    std::unique_ptr<Value> root = JSONReader::ReadAndReturnError(text, options, &code, &message);
    EXPECT_NE(root, nullptr) << text << " -> " << message;
    return root;
}

// The one string inside a one-element list.
std::string ReadString(const std::string& json_string) {
    std::unique_ptr<Value> root = ReadOk("[" + json_string + "]");
    std::string out = "<none>";
    ListValue* list = nullptr;
    if (root && root->GetAsList(&list)) {
        EXPECT_TRUE(list->GetString(0, &out));
    }
    return out;
}

TEST(JSONReaderErrors, EachCodeWithItsTextAndPosition) {
    struct Case {
        const char* text;
        int32_t code;
        int32_t line;
        int32_t column;
        const char* message;
    } cases[] = {
        {"", 3, 1, 1, "Line: 1, column: 1, Unexpected token."},
        {"{}x", 6, 1, 3, "Line: 1, column: 3, Unexpected data after root element."},
        {"{},{}", 6, 1, 3, "Line: 1, column: 3, Unexpected data after root element."},
        {"[1,]", 4, 1, 4, "Line: 1, column: 4, Trailing comma not allowed."},
        {"{\"a\":1,}", 4, 1, 8, "Line: 1, column: 8, Trailing comma not allowed."},
        {"{a:1}", 8, 1, 2, "Line: 1, column: 2, Dictionary keys must be quoted."},
        {"{\"a\" 1}", 2, 1, 6, "Line: 1, column: 6, Syntax error."},
        // A bad separator after an element has no plus one.
        {"[true false]", 2, 1, 6, "Line: 1, column: 6, Syntax error."},
        {"{\"a\":true \"b\":2}", 2, 1, 10, "Line: 1, column: 10, Syntax error."},
        // After a number its own look-ahead reports first, with the plus one.
        {"{\"a\":1 \"b\":2}", 2, 1, 8, "Line: 1, column: 8, Syntax error."},
        {"[\"a\\q\"]", 1, 1, 4, "Line: 1, column: 4, Invalid escape sequence."},
        {"[\"\\uD800\"]", 1, 1, 4, "Line: 1, column: 4, Invalid escape sequence."},
        {"[\"\xC3\"]", 7, 1, 3, "Line: 1, column: 3, Unsupported encoding. JSON must be UTF-8."},
        // End of text inside a string: no plus one.
        {"\"abc", 2, 1, 4, "Line: 1, column: 4, Syntax error."},
        {"[\"a\\", 1, 1, 4, "Line: 1, column: 4, Invalid escape sequence."},
        {"]", 3, 1, 1, "Line: 1, column: 1, Unexpected token."},
    };
    for (const Case& c : cases) {
        Failure f = ReadFailure(c.text);
        EXPECT_EQ(f.code, c.code) << c.text;
        EXPECT_EQ(f.line, c.line) << c.text;
        EXPECT_EQ(f.column, c.column) << c.text;
        EXPECT_EQ(f.message, c.message) << c.text;
    }
}

TEST(JSONReaderErrors, LinesAndColumnsAcrossLineEnds) {
    // The column counts from the line end character itself.
    Failure f = ReadFailure("{\n  \"a\": 1,\n  b: 2\n}");
    EXPECT_EQ(f.code, 8);
    EXPECT_EQ(f.line, 3);
    EXPECT_EQ(f.column, 4);

    // "\r\n" is one line end.
    f = ReadFailure("[\r\n1,]");
    EXPECT_EQ(f.code, 4);
    EXPECT_EQ(f.line, 2);
    EXPECT_EQ(f.column, 4);

    // The look-ahead after a number must not count a line twice.
    f = ReadFailure("[1\n\n,x]");
    EXPECT_EQ(f.code, 3);
    EXPECT_EQ(f.line, 3);

    // Line ends inside strings and block comments are not counted.
    f = ReadFailure("[\"a\nb\", /* \n */ x]");
    EXPECT_EQ(f.line, 1);
    EXPECT_EQ(f.column, 17);

    // The byte order mark counts on the first line.
    f = ReadFailure("\xEF\xBB\xBFx");
    EXPECT_EQ(f.code, 3);
    EXPECT_EQ(f.column, 4);
}

TEST(JSONReaderErrors, MessageOmitsPositionOnlyWhenBothAreZero) {
    EXPECT_EQ(JSONReader::FormatErrorMessage(0, 0, "Syntax error."), "Syntax error.");
    EXPECT_EQ(JSONReader::FormatErrorMessage(0, 5, "Syntax error."),
              "Line: 0, column: 5, Syntax error.");
    EXPECT_EQ(JSONReader::ErrorCodeToString(0), "");
}

TEST(JSONReaderErrors, OutputsUntouchedOnSuccessAndReaderKeepsLastError) {
    int32_t code = 42, line = 42, column = 42;
    std::string message = "unchanged";
    EXPECT_NE(JSONReader::ReadAndReturnError("{}", 0, &code, &message, &line, &column), nullptr);
    EXPECT_EQ(code, 42);
    EXPECT_EQ(message, "unchanged");
    EXPECT_EQ(line, 42);

    JSONReader reader;
    EXPECT_EQ(reader.ReadToValue("[1,]", 4), nullptr);
    EXPECT_EQ(reader.error_code(), JSONReader::JSON_TRAILING_COMMA);
    EXPECT_EQ(reader.GetErrorMessage(), "Line: 1, column: 4, Trailing comma not allowed.");
    EXPECT_NE(reader.ReadToValue("[1]", 3), nullptr);
    EXPECT_EQ(reader.error_code(), JSONReader::JSON_NO_ERROR);
}

TEST(JSONReaderNesting, NinetyNineLevelsReadAndTheHundredthRefused) {
    std::string ok = std::string(99, '[') + std::string(99, ']');
    EXPECT_NE(JSONReader::Read(ok), nullptr);

    std::string deep = std::string(100, '[') + std::string(100, ']');
    Failure f = ReadFailure(deep);
    EXPECT_EQ(f.code, 5);
    EXPECT_EQ(f.message, "Line: 1, column: 100, Too much nesting.");

    // Objects and lists count together.
    std::string mixed;
    for (int i = 0; i < 50; ++i) {
        mixed += "{\"k\":[";
    }
    EXPECT_EQ(ReadFailure(mixed).code, 5);

    // Far deeper input fails the same way instead of exhausting the stack.
    EXPECT_EQ(ReadFailure(std::string(1000000, '[')).code, 5);
}

TEST(JSONReaderSyntax, TrailingCommasOnlyWithTheOption) {
    EXPECT_EQ(ReadFailure("[1,]").code, 4);
    EXPECT_NE(ReadOk("[1,]", JSONReader::JSON_ALLOW_TRAILING_COMMAS), nullptr);
    EXPECT_NE(ReadOk("{\"a\":1,}", JSONReader::JSON_ALLOW_TRAILING_COMMAS), nullptr);
    // A lone or doubled comma is not a trailing one.
    EXPECT_EQ(ReadFailure("[,]", JSONReader::JSON_ALLOW_TRAILING_COMMAS).code, 3);
    EXPECT_EQ(ReadFailure("[1,,]", JSONReader::JSON_ALLOW_TRAILING_COMMAS).code, 3);
    EXPECT_EQ(ReadFailure("{,}", JSONReader::JSON_ALLOW_TRAILING_COMMAS).code, 8);
}

TEST(JSONReaderSyntax, CommentsInEveryForm) {
    EXPECT_NE(ReadOk("// x\n{}"), nullptr);
    EXPECT_NE(ReadOk("{} /* x"), nullptr);
    EXPECT_NE(ReadOk("/{}"), nullptr);
    EXPECT_NE(ReadOk("{}/"), nullptr);
    EXPECT_NE(ReadOk("[1/]"), nullptr);
    std::unique_ptr<Value> root = ReadOk("{/*a*/\"k\"/**/:// c\r7 /* \n */}");
    DictionaryValue* dict = nullptr;
    ASSERT_TRUE(root && root->GetAsDictionary(&dict));
    int32_t k = 0;
    EXPECT_TRUE(dict->GetInteger("k", &k));
    EXPECT_EQ(k, 7);
    // A comment that never ends swallows the value.
    EXPECT_EQ(ReadFailure("/* {}").code, 3);
    EXPECT_EQ(ReadFailure("// {}").code, 3);
}

TEST(JSONReaderSyntax, Literals) {
    bool b = false;
    std::unique_ptr<Value> root = ReadOk("[true, false, null]");
    ListValue* list = nullptr;
    ASSERT_TRUE(root->GetAsList(&list));
    EXPECT_TRUE(list->GetBoolean(0, &b) && b);
    EXPECT_TRUE(list->GetBoolean(1, &b) && !b);
    const Value* null_node = nullptr;
    EXPECT_TRUE(list->Get(2, &null_node));
    EXPECT_EQ(null_node->GetType(), Value::TYPE_NULL);

    Failure f = ReadFailure("[tru]");
    EXPECT_EQ(f.code, 2);
    EXPECT_EQ(f.column, 2);
    EXPECT_EQ(ReadFailure("nul").code, 2);
    EXPECT_EQ(ReadFailure("True").code, 3);
    // The literal itself matches; what follows is the next token's problem.
    f = ReadFailure("[nullx]");
    EXPECT_EQ(f.code, 2);
    EXPECT_EQ(f.column, 5);
    EXPECT_EQ(ReadFailure("truex").code, 6);
}

TEST(JSONReaderNumbers, IntegerDoubleSplitAndRefusals) {
    std::unique_ptr<Value> root = ReadOk(
        "[3, 2147483647, 2147483648, -2147483648, -2147483649, 3.0, 1e2, -0, 0.01,"
        " 1E+2, 12345678901234567890, 1e-400]");
    ListValue* list = nullptr;
    ASSERT_TRUE(root->GetAsList(&list));
    Value::Type types[] = {Value::TYPE_INTEGER, Value::TYPE_INTEGER, Value::TYPE_DOUBLE,
                           Value::TYPE_INTEGER, Value::TYPE_DOUBLE,  Value::TYPE_DOUBLE,
                           Value::TYPE_DOUBLE,  Value::TYPE_INTEGER, Value::TYPE_DOUBLE,
                           Value::TYPE_DOUBLE,  Value::TYPE_DOUBLE,  Value::TYPE_DOUBLE};
    ASSERT_EQ(list->GetSize(), sizeof types / sizeof types[0]);
    for (std::size_t i = 0; i < list->GetSize(); ++i) {
        const Value* v = nullptr;
        ASSERT_TRUE(list->Get(i, &v));
        EXPECT_EQ(v->GetType(), types[i]) << "element " << i;
    }
    int32_t i = 0;
    double d = 0;
    EXPECT_TRUE(list->GetInteger(1, &i));
    EXPECT_EQ(i, 2147483647);
    EXPECT_TRUE(list->GetInteger(3, &i));
    EXPECT_EQ(i, -2147483647 - 1);
    EXPECT_TRUE(list->GetDouble(2, &d));
    EXPECT_EQ(d, 2147483648.0);
    EXPECT_TRUE(list->GetDouble(6, &d));
    EXPECT_EQ(d, 100.0);
    EXPECT_TRUE(list->GetDouble(8, &d));
    EXPECT_EQ(d, 0.01);
    EXPECT_TRUE(list->GetDouble(11, &d));
    EXPECT_EQ(d, 0.0);

    struct Bad {
        const char* text;
        int32_t column;
    } bad[] = {{"[01]", 4},     {"[1.]", 4}, {"[1e]", 4},  {"[-]", 3},  {"[1e400]", 6},
               {"[-1e999]", 7}, {"[.5]", 2}, {"[1 2]", 4}, {"[1x]", 3}, {"[+1]", 2}};
    for (const Bad& b : bad) {
        Failure f = ReadFailure(b.text);
        EXPECT_EQ(f.code, b.text[1] == '.' || b.text[1] == '+' ? 3 : 2) << b.text;
        EXPECT_EQ(f.column, b.column) << b.text;
    }
    // Leading zeros are fine after the point, and a root number needs nothing after it.
    EXPECT_NE(ReadOk("0.001"), nullptr);
    EXPECT_NE(ReadOk("[-0.0e-0]"), nullptr);
}

TEST(JSONReaderStrings, EscapesAndRawCharacters) {
    EXPECT_EQ(ReadString("\"a\\\"\\/\\\\\\b\\f\\n\\r\\t\\v\""), "a\"/\\\b\f\n\r\t\v");
    EXPECT_EQ(ReadString("\"\\x41\\x7a\""), "Az");
    // A \x byte goes in raw, even when it isn't UTF-8 by itself.
    EXPECT_EQ(ReadString("\"\\xff\""), "\xff");
    EXPECT_EQ(ReadString("\"\\u00e9\\u4E2D\""), "\xC3\xA9\xE4\xB8\xAD");
    EXPECT_EQ(ReadString("\"\\uD83D\\uDE00\""), "\xF0\x9F\x98\x80");
    EXPECT_EQ(ReadString("\"a\\u0000b\""), "ab");
    EXPECT_EQ(ReadString("\"tab\there\nnl\""), "tab\there\nnl");
    EXPECT_EQ(ReadString("\"\xF0\x9F\x98\x80 \xE4\xB8\xAD\""), "\xF0\x9F\x98\x80 \xE4\xB8\xAD");

    const char* invalid_escapes[] = {
        "[\"\\x4\"]",    "[\"\\xg0\"]",          "[\"\\u12\"]",    "[\"\\u12G4\"]",
        "[\"\\uDC00\"]", "[\"\\uD800\\u0041\"]", "[\"\\uD800x\"]", "[\"\\uFDD0\"]",
        "[\"\\uFFFE\"]", "[\"\\uD83F\\uDFFF\"]", "[\"\\a\"]",      "[\"\\U0041\"]",
    };
    for (const char* text : invalid_escapes) {
        EXPECT_EQ(ReadFailure(text).code, 1) << text;
    }
}

TEST(JSONReaderStrings, RefusesBadUtf8) {
    const char* bad[] = {
        "[\"\x80\"]",              // continuation byte first
        "[\"\xBF\"]",              //
        "[\"\xFE\"]",              //
        "[\"\xFF\"]",              //
        "[\"\xC0\x80\"]",          // overlong
        "[\"\xE0\x80\xAF\"]",      // overlong
        "[\"\xED\xA0\x80\"]",      // surrogate
        "[\"\xEF\xB7\x90\"]",      // U+FDD0
        "[\"\xEF\xB7\xAF\"]",      // U+FDEF
        "[\"\xEF\xBF\xBE\"]",      // U+FFFE
        "[\"\xF0\x9F\xBF\xBF\"]",  // U+1FFFF
        "[\"\xF4\x90\x80\x80\"]",  // above U+10FFFF
        "[\"\xE4\xB8\"]",          // cut short
        "[\"\xE4\xB8",             // cut short at the end of the text
    };
    for (const char* text : bad) {
        Failure f = ReadFailure(text);
        EXPECT_EQ(f.code, 7) << text;
        EXPECT_EQ(f.column, 3) << text;
    }
    // Keys are checked the same way.
    EXPECT_EQ(ReadFailure("{\"\xFF\":1}").code, 7);
    // Just outside the refused ranges.
    EXPECT_EQ(ReadString("\"\xEF\xB7\x8F\xEF\xB7\xB0\xEF\xBF\xBD\""),
              "\xEF\xB7\x8F\xEF\xB7\xB0\xEF\xBF\xBD");
}

TEST(JSONReaderDictionaries, KeysAreLiteralAndTheLastDuplicateWins) {
    std::unique_ptr<Value> root = ReadOk("{\"a.b\": 1, \"a\": 1, \"a\": {\"b\": \"x\"}, \"\": 5}");
    DictionaryValue* dict = nullptr;
    ASSERT_TRUE(root->GetAsDictionary(&dict));
    EXPECT_TRUE(dict->HasKey("a.b"));
    std::string s;
    EXPECT_TRUE(dict->GetString("a.b", &s));  // reaches {"a": {"b": ...}}
    EXPECT_EQ(s, "x");
    const Value* literal = nullptr;
    ASSERT_TRUE(dict->GetWithoutPathExpansion("a.b", &literal));
    int32_t i = 0;
    EXPECT_TRUE(literal->GetAsInteger(&i));
    EXPECT_EQ(i, 1);
    EXPECT_TRUE(dict->GetInteger("", &i));
    EXPECT_EQ(i, 5);
    EXPECT_EQ(dict->size(), 3u);

    root = ReadOk("{\"a.b\": 1}");
    ASSERT_TRUE(root->GetAsDictionary(&dict));
    EXPECT_FALSE(dict->GetInteger("a.b", &i));
    EXPECT_TRUE(dict->HasKey("a.b"));

    root = ReadOk("{\"a\": 1, \"a\": 2}");
    ASSERT_TRUE(root->GetAsDictionary(&dict));
    EXPECT_TRUE(dict->GetInteger("a", &i));
    EXPECT_EQ(i, 2);
}

TEST(JSONReaderTree, ByteOrderMarkAndEmptyContainers) {
    std::unique_ptr<Value> root = ReadOk("\xEF\xBB\xBF{}");
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(root->GetType(), Value::TYPE_DICTIONARY);
    root = ReadOk(" [ ] ");
    EXPECT_EQ(root->GetType(), Value::TYPE_LIST);
    EXPECT_EQ(JSONReader::Read("{\"a\":[{}]}")->GetType(), Value::TYPE_DICTIONARY);
    EXPECT_EQ(JSONReader::Read(nullptr, 0), nullptr);
}

// Runs of spaces are passed several at a time: positions after runs of every
// length around that step, and runs that reach the end of the text, must
// come out as after a run passed one space at a time.
TEST(JSONReaderErrors, PositionsAfterRunsOfSpaces) {
    for (std::size_t run = 0; run <= 25; ++run) {
        const std::string spaces(run, ' ');
        Failure f = ReadFailure("[\n" + spaces + "x]");
        EXPECT_EQ(f.code, 3) << run;
        EXPECT_EQ(f.line, 2) << run;
        EXPECT_EQ(f.column, static_cast<int32_t>(run) + 2) << run;

        f = ReadFailure("{}" + spaces + "\t" + spaces + "x");
        EXPECT_EQ(f.code, 6) << run;
        EXPECT_EQ(f.column, static_cast<int32_t>(2 * run) + 4) << run;

        // Spaces up to the end: a value, then nothing.
        EXPECT_NE(ReadOk(spaces + "[1," + spaces + "2]" + spaces), nullptr) << run;
        f = ReadFailure("[" + spaces);
        EXPECT_EQ(f.code, 3) << run;
        EXPECT_EQ(f.column, static_cast<int32_t>(run) + 2) << run;
    }
}

// The look-ahead after a number passes the same blanks, comments and line
// ends as the skip that follows it: each line end counts once.
TEST(JSONReaderErrors, LinesAfterANumberCountOnce) {
    struct Case {
        const char* text;
        int32_t code;
        int32_t line;
        int32_t column;
    } cases[] = {
        {"[1 /*\n*/ \n , x]", 3, 2, 5},   {"{\"a\": 1\r\n,\r\n \"b\": 2\r\n, c}", 8, 4, 4},
        {"[[1\n\n]\n x]", 2, 4, 2},       {"[1 // note\n\r\n]\n\nx", 6, 5, 2},
        {"[-2.5e3\n,\n1\n\n,]", 4, 5, 3}, {"{\"a\": 7 \n\"b\": 1}", 2, 2, 2},
    };
    for (const Case& c : cases) {
        Failure f = ReadFailure(c.text);
        EXPECT_EQ(f.code, c.code) << c.text;
        EXPECT_EQ(f.line, c.line) << c.text;
        EXPECT_EQ(f.column, c.column) << c.text;
    }
}

// Plain strings are scanned several bytes at a time: every length around
// that step, ending at the quote, at an escape or at the end of the text.
TEST(JSONReaderStrings, ScanStopsAtTheRightByteForEveryLength) {
    for (std::size_t length = 0; length <= 12; ++length) {
        const std::string body(length, 'a');
        EXPECT_EQ(ReadString("\"" + body + "\""), body) << length;
        EXPECT_EQ(ReadString("\"" + body + "\\n\""), body + "\n") << length;
        EXPECT_EQ(ReadString("\"" + body + "\xC3\xA9\""), body + "\xC3\xA9") << length;
        Failure f = ReadFailure("\"" + body);
        EXPECT_EQ(f.code, 2) << length;
        EXPECT_EQ(f.column, static_cast<int32_t>(length) + 1) << length;
        // Read in place from a buffer of exactly that size, so that a read
        // past its end shows under AddressSanitizer.
        const std::string text = "\"" + body;
        std::unique_ptr<char[]> exact(new char[text.size()]);
        std::memcpy(exact.get(), text.data(), text.size());
        int32_t code = -1;
        EXPECT_EQ(
            JSONReader::ReadAndReturnError(exact.get(), text.size(),
                                           JSONReader::JSON_DETACHABLE_CHILDREN, &code, nullptr),
            nullptr);
        EXPECT_EQ(code, 2) << length;
    }
}

// Strings that need decoding are built a run at a time between escapes.
TEST(JSONReaderStrings, RunsBetweenEscapesKeepTheirOrder) {
    const struct {
        const char* json;
        const char* value;
    } cases[] = {
        {"\"\\nab\"", "\nab"},
        {"\"ab\\n\"", "ab\n"},
        {"\"a\\n\\tb\"", "a\n\tb"},
        {"\"\xC3\xA9x\\x41y\xE4\xB8\xAD\"", "\xC3\xA9xAy\xE4\xB8\xAD"},
        {"\"\xE4\xB8\xAD\"", "\xE4\xB8\xAD"},
        {"\"one\ttwo\\u0000three\\/\"", "one\ttwothree/"},
        {"\"\\\"\\\"\"", "\"\""},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(ReadString(c.json), c.value) << c.json;
    }
    // A bad byte after a run and after an escape: the column is its own.
    Failure f = ReadFailure("[\"abc\xFF\"]");
    EXPECT_EQ(f.code, 7);
    EXPECT_EQ(f.column, 6);
    f = ReadFailure("[\"\\n\xC3\xA9\xFF\"]");
    EXPECT_EQ(f.code, 7);
    EXPECT_EQ(f.column, 7);
    // A key spelled with an escape is the same key.
    std::unique_ptr<Value> root = ReadOk("{\"ab\": 1, \"a\\u0062\": 2}");
    const DictionaryValue* dict = nullptr;
    ASSERT_TRUE(root->GetAsDictionary(&dict));
    int32_t value = 0;
    EXPECT_EQ(dict->size(), 1u);
    EXPECT_TRUE(dict->GetInteger("ab", &value));
    EXPECT_EQ(value, 2);
}

// Whatever leaves any level of a parsed tree must hold its own text. Each
// case takes something out of the root or of a nested level, frees the
// root, then reads the strings; under AddressSanitizer a string still
// pointing into the freed text is a use-after-free.
TEST(JSONReaderBorrowing, WhatLeavesAnyLevelOutlivesTheRoot) {
    const std::string text = "{\"n\":{\"m\":\"some text\"},\"l\":[\"more text\"],\"s\":\"top\"}";
    using Take = std::function<std::unique_ptr<Value>(DictionaryValue * root)>;
    auto nested_dict = [](DictionaryValue* root) {
        DictionaryValue* n = nullptr;
        EXPECT_TRUE(root->GetDictionary("n", &n));
        return n;
    };
    auto nested_list = [](DictionaryValue* root) {
        ListValue* l = nullptr;
        EXPECT_TRUE(root->GetList("l", &l));
        return l;
    };
    const struct {
        const char* name;
        Take take;
        const char* path;  // where the string lies in what was taken
        const char* expected;
    } cases[] = {
        {"remove from nested dictionary",
         [&](DictionaryValue* root) {
             std::unique_ptr<Value> out;
             EXPECT_TRUE(nested_dict(root)->RemoveWithoutPathExpansion("m", &out));
             auto holder = std::make_unique<DictionaryValue>();
             holder->Set("v", std::move(out));
             return std::unique_ptr<Value>(std::move(holder));
         },
         "v", "some text"},
        {"remove by path through a nested level",
         [&](DictionaryValue* root) {
             std::unique_ptr<Value> out;
             EXPECT_TRUE(root->Remove("n.m", &out));
             auto holder = std::make_unique<DictionaryValue>();
             holder->Set("v", std::move(out));
             return std::unique_ptr<Value>(std::move(holder));
         },
         "v", "some text"},
        {"remove from nested list",
         [&](DictionaryValue* root) {
             std::unique_ptr<Value> out;
             EXPECT_TRUE(nested_list(root)->Remove(0, &out));
             auto holder = std::make_unique<DictionaryValue>();
             holder->Set("v", std::move(out));
             return std::unique_ptr<Value>(std::move(holder));
         },
         "v", "more text"},
        {"remove a whole level from the root",
         [&](DictionaryValue* root) {
             std::unique_ptr<Value> out;
             EXPECT_TRUE(root->RemoveWithoutPathExpansion("n", &out));
             return out;
         },
         "m", "some text"},
        {"swap a nested dictionary with a plain one",
         [&](DictionaryValue* root) {
             auto plain = std::make_unique<DictionaryValue>();
             nested_dict(root)->Swap(plain.get());
             return std::unique_ptr<Value>(std::move(plain));
         },
         "m", "some text"},
        {"swap a plain dictionary with a nested one",
         [&](DictionaryValue* root) {
             auto plain = std::make_unique<DictionaryValue>();
             plain->Swap(nested_dict(root));
             return std::unique_ptr<Value>(std::move(plain));
         },
         "m", "some text"},
        {"swap a nested list with a plain one, both ways",
         [&](DictionaryValue* root) {
             ListValue plain;
             nested_list(root)->Swap(&plain);
             auto holder = std::make_unique<ListValue>();
             holder->Swap(&plain);
             auto dict = std::make_unique<DictionaryValue>();
             dict->Set("v", std::move(holder));
             ListValue second;
             second.AppendString("own");
             second.Swap(nested_list(root));
             return std::unique_ptr<Value>(std::move(dict));
         },
         "v", "more text"},
        {"swap the root with a plain dictionary",
         [&](DictionaryValue* root) {
             auto plain = std::make_unique<DictionaryValue>();
             root->Swap(plain.get());
             return std::unique_ptr<Value>(std::move(plain));
         },
         "n.m", "some text"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::unique_ptr<Value> root = JSONReader::Read(text);
        DictionaryValue* dict = nullptr;
        ASSERT_TRUE(root && root->GetAsDictionary(&dict));
        // A borrowed node is a string, but no StringValue.
        const Value* top = nullptr;
        ASSERT_TRUE(dict->Get("s", &top));
        EXPECT_FALSE(top->GetAsStringValue(nullptr));
        std::unique_ptr<Value> taken = c.take(dict);
        root.reset();
        ASSERT_NE(taken, nullptr);
        std::string s;
        const DictionaryValue* holder = nullptr;
        const ListValue* list = nullptr;
        ASSERT_TRUE(taken->GetAsDictionary(&holder));
        if (holder->GetList(c.path, &list)) {
            EXPECT_TRUE(list->GetString(0, &s));
        } else {
            EXPECT_TRUE(holder->GetString(c.path, &s));
        }
        EXPECT_EQ(s, c.expected);
    }
}

// Copies are only for trees that borrow: a detachable tree, a tree with no
// plain string and a tree built by hand hand out their own nodes.
TEST(JSONReaderBorrowing, NothingBorrowedMeansNothingCopied) {
    struct Source {
        const char* name;
        std::unique_ptr<Value> root;
    };
    auto by_hand = std::make_unique<DictionaryValue>();
    by_hand->SetString("n.m", "x");
    Source sources[] = {
        {"detachable", ReadOk("{\"n\":{\"m\":\"x\"}}", JSONReader::JSON_DETACHABLE_CHILDREN)},
        {"escaped strings only", ReadOk("{\"n\":{\"m\":\"\\u0078\"}}")},
        {"by hand", std::move(by_hand)},
    };
    for (auto& source : sources) {
        SCOPED_TRACE(source.name);
        DictionaryValue* root = nullptr;
        ASSERT_TRUE(source.root->GetAsDictionary(&root));
        DictionaryValue* n = nullptr;
        ASSERT_TRUE(root->GetDictionary("n", &n));
        const Value* m = nullptr;
        ASSERT_TRUE(n->Get("m", &m));
        std::unique_ptr<Value> out;
        ASSERT_TRUE(n->RemoveWithoutPathExpansion("m", &out));
        EXPECT_EQ(out.get(), m);
        std::unique_ptr<Value> level;
        ASSERT_TRUE(root->RemoveWithoutPathExpansion("n", &level));
        EXPECT_EQ(level.get(), n);
    }
}

TEST(JSONReaderBorrowing, DetachableTreesAndStringRootsOwnTheirText) {
    std::unique_ptr<Value> root = ReadOk("{\"k\": \"v\"}", JSONReader::JSON_DETACHABLE_CHILDREN);
    const DictionaryValue* dict = nullptr;
    ASSERT_TRUE(root->GetAsDictionary(&dict));
    const Value* v = nullptr;
    ASSERT_TRUE(dict->Get("k", &v));
    const base::StringValue* sv = nullptr;
    EXPECT_TRUE(v->GetAsStringValue(&sv));
    EXPECT_EQ(sv->GetString(), "v");

    root = ReadOk("\"alone\"");
    EXPECT_TRUE(root->GetAsStringValue(&sv));
    EXPECT_EQ(sv->GetString(), "alone");
}

TEST(JSONReaderBorrowing, CopiesAndEqualityIgnoreHowStringsAreHeld) {
    const std::string text =
        "{\"a\": [1, 2.5, \"x\", \"\\u00e9\", true, null, {}], \"b\": {\"c\": \"d\"}}";
    std::unique_ptr<Value> borrowed = JSONReader::Read(text);
    std::unique_ptr<Value> detached = ReadOk(text, JSONReader::JSON_DETACHABLE_CHILDREN);
    ASSERT_TRUE(borrowed && detached);
    EXPECT_TRUE(borrowed->Equals(detached.get()));
    EXPECT_TRUE(detached->Equals(borrowed.get()));
    std::unique_ptr<Value> copy = borrowed->CreateDeepCopy();
    borrowed.reset();
    EXPECT_TRUE(copy->Equals(detached.get()));
    std::unique_ptr<Value> different = JSONReader::Read("{\"a\": [1, 2.5, \"y\"]}");
    EXPECT_FALSE(copy->Equals(different.get()));
}

TEST(JSONReaderWide, BorrowedStringsConvertToWide) {
    std::unique_ptr<Value> root = JSONReader::Read("{\"p\": \"C:/dir\", \"u\": \"\xE4\xB8\xAD\"}");
    const DictionaryValue* dict = nullptr;
    ASSERT_TRUE(root->GetAsDictionary(&dict));
    std::wstring wide;
    EXPECT_TRUE(dict->GetString("p", &wide));
    EXPECT_EQ(wide, L"C:/dir");
    EXPECT_TRUE(dict->GetString("u", &wide));
    EXPECT_EQ(wide, std::wstring(1, static_cast<wchar_t>(0x4E2D)));
}

}  // namespace
