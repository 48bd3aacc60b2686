#include "base/json/json_reader.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>

#include "base/values.h"

namespace {

using base::DictionaryValue;
using base::JSONReader;
using base::ListValue;
using base::Value;
using Taken = std::unique_ptr<Value>;

struct Failure {
    int32_t code = -1, line = -1, column = -1;
    std::string message;
};

Failure ReadFailure(const std::string& text, int32_t options = 0) {
    Failure f;
    EXPECT_EQ(
        JSONReader::ReadAndReturnError(text, options, &f.code, &f.message, &f.line, &f.column),
        nullptr)
        << text;
    return f;
}

Taken ReadOk(const std::string& text, int32_t options = 0) {
    int32_t code = -1;
    std::string message;
    Taken root = JSONReader::ReadAndReturnError(text, options, &code, &message);
    EXPECT_NE(root, nullptr) << text << " -> " << message;
    return root;
}

DictionaryValue* Dict(const Taken& root) {
    DictionaryValue* dict = nullptr;
    EXPECT_TRUE(root && root->GetAsDictionary(&dict));
    return dict;
}

// The one string inside a one-element list.
std::string ReadString(const std::string& json_string) {
    Taken root = ReadOk("[" + json_string + "]");
    std::string out = "<none>";
    ListValue* list = nullptr;
    EXPECT_TRUE(root && root->GetAsList(&list) && list->GetString(0, &out));
    return out;
}

TEST(JSONReaderErrors, CodeLineColumnAndMessage) {
    const int32_t kTrailing = JSONReader::JSON_ALLOW_TRAILING_COMMAS;
    const struct {
        const char* text;
        int32_t code, line, column;  // column 0: not checked
        const char* message;
        int32_t options;
    } cases[] = {
        // clang-format off
        {"", 3, 1, 1, "Line: 1, column: 1, Unexpected token.", 0},
        {"{},{}", 6, 1, 3, "Line: 1, column: 3, Unexpected data after root element.", 0},
        {"{\"a\":1,}", 4, 1, 8, "Line: 1, column: 8, Trailing comma not allowed.", 0},
        {"{a:1}", 8, 1, 2, "Line: 1, column: 2, Dictionary keys must be quoted.", 0},
        {"{\"a\" 1}", 2, 1, 6, "Line: 1, column: 6, Syntax error.", 0},
        {"[\"a\\q\"]", 1, 1, 4, "Line: 1, column: 4, Invalid escape sequence.", 0},
        {"[\"\xC3\"]", 7, 1, 3, "Line: 1, column: 3, Unsupported encoding. JSON must be UTF-8.", 0},
        // After a number its own look-ahead reports first, with the plus one.
        {"[true false]", 2, 1, 6, nullptr, 0},
        {"{\"a\":1 \"b\":2}", 2, 1, 8, nullptr, 0},
        // End of text inside a string: no plus one.
        {"\"abc", 2, 1, 4, nullptr, 0},
        {"[\"a\\", 1, 1, 4, nullptr, 0},
        // "\r\n" is one line end; those in strings and comments don't count.
        {"{\n  \"a\": 1,\n  b: 2\n}", 8, 3, 4, nullptr, 0},
        {"[\r\n1,]", 4, 2, 4, nullptr, 0},
        {"[\"a\nb\", /* \n */ x]", 3, 1, 17, nullptr, 0},
        {"\xEF\xBB\xBFx", 3, 1, 4, nullptr, 0},
        // Line ends the look-ahead after a number passes count once.
        {"[1 /*\n*/ \n , x]", 3, 2, 5, nullptr, 0},
        {"{\"a\": 1\r\n,\r\n \"b\": 2\r\n, c}", 8, 4, 4, nullptr, 0},
        {"[1 // note\n\r\n]\n\nx", 6, 5, 2, nullptr, 0},
        {"[-2.5e3\n,\n1\n\n,]", 4, 5, 3, nullptr, 0},
        {"[1,,]", 3, 1, 0, nullptr, kTrailing},
        {"{,}", 8, 1, 0, nullptr, kTrailing},
        // A comment that never ends swallows the value.
        {"/* {}", 3, 1, 0, nullptr, 0},
        {"[nullx]", 2, 1, 5, nullptr, 0},
        {"truex", 6, 1, 0, nullptr, 0},
        {"[\"\\n\xC3\xA9\xFF\"]", 7, 1, 7, nullptr, 0},
        {"[\"\\uD800\"]", 1, 1, 4, nullptr, 0},
        // clang-format on
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        Failure f = ReadFailure(c.text, c.options);
        EXPECT_EQ(f.code * 100 + f.line, c.code * 100 + c.line);
        EXPECT_TRUE(!c.column || f.column == c.column) << f.column;
        EXPECT_TRUE(!c.message || f.message == c.message) << f.message;
    }
    // code * 100 + column
    const std::pair<const char*, int32_t> numbers[] = {
        {"[01]", 204},  {"[1.]", 204},     {"[1e]", 204}, {"[-]", 203},  {"[1e400]", 206},
        {"[1 2]", 204}, {"[-1e999]", 207}, {"[1x]", 203}, {"[.5]", 302}, {"[+1]", 302}};
    for (const auto& [text, expected] : numbers) {
        Failure f = ReadFailure(text);
        EXPECT_EQ(f.code * 100 + f.column, expected) << text;
    }
    // Overlong forms, surrogates, noncharacters, cut sequences.
    for (const char* text :
         {"[\"\x80\"]", "[\"\xC0\x80\"]", "[\"\xE0\x80\xAF\"]", "[\"\xED\xA0\x80\"]",
          "[\"\xEF\xB7\x90\"]", "[\"\xEF\xBF\xBE\"]", "[\"\xF4\x90\x80\x80\"]", "[\"\xE4\xB8"}) {
        Failure f = ReadFailure(text);
        EXPECT_EQ(f.code * 100 + f.column, 703) << text;
    }
    for (const char* text : {"[\"\\x4\"]", "[\"\\xg0\"]", "[\"\\u12G4\"]", "[\"\\uDC00\"]",
                             "[\"\\uD800\\u0041\"]", "[\"\\uFDD0\"]", "[\"\\U0041\"]"}) {
        EXPECT_EQ(ReadFailure(text).code, 1) << text;
    }
    EXPECT_EQ(JSONReader::FormatErrorMessage(0, 0, "Syntax error."), "Syntax error.");
    EXPECT_EQ(JSONReader::ErrorCodeToString(0), "");

    // Outputs stay untouched on success; a reader keeps only its last error.
    int32_t code = 42, line = 42, column = 42;
    std::string message = "unchanged";
    EXPECT_NE(JSONReader::ReadAndReturnError("{}", 0, &code, &message, &line, &column), nullptr);
    EXPECT_EQ(message + std::to_string(code + line + column), "unchanged126");
    JSONReader reader;
    EXPECT_EQ(reader.ReadToValue("[1,]", 4), nullptr);
    EXPECT_EQ(reader.GetErrorMessage(), "Line: 1, column: 4, Trailing comma not allowed.");
    EXPECT_NE(reader.ReadToValue("[1]", 3), nullptr);
    EXPECT_EQ(reader.error_code(), JSONReader::JSON_NO_ERROR);
}

// Runs are skipped several bytes at a time: every length around the step.
TEST(JSONReaderErrors, PositionsAfterRunsOfEveryLength) {
    for (std::size_t run = 0; run <= 25; ++run) {
        SCOPED_TRACE(run);
        const std::string spaces(run, ' '), body(run, 'a');
        const int32_t n = static_cast<int32_t>(run);
        Failure f = ReadFailure("[\n" + spaces + "x]");
        EXPECT_EQ(f.code * 1000 + f.line * 100 + f.column, 3200 + n + 2);
        f = ReadFailure("{}" + spaces + "\t" + spaces + "x");
        EXPECT_EQ(f.code * 1000 + f.column, 6000 + 2 * n + 4);
        EXPECT_EQ(ReadString("\"" + body + "\\n\xC3\xA9\""), body + "\n\xC3\xA9");
        // Exactly sized, so that a read past the end shows under ASan.
        const std::string text = "\"" + body;
        std::unique_ptr<char[]> exact(new char[text.size()]);
        std::memcpy(exact.get(), text.data(), text.size());
        int32_t code = -1;
        EXPECT_EQ(JSONReader::ReadAndReturnError(exact.get(), text.size(), 0, &code, nullptr),
                  nullptr);
        EXPECT_EQ(code, 2);
    }
}

TEST(JSONReaderSyntax, NestingStopsAtTheHundredthLevel) {
    EXPECT_NE(JSONReader::Read(std::string(99, '[') + std::string(99, ']')), nullptr);
    Failure f = ReadFailure(std::string(100, '[') + std::string(100, ']'));
    EXPECT_EQ(f.message, "Line: 1, column: 100, Too much nesting.");
    std::string mixed;  // objects and lists count together
    for (int i = 0; i < 50; ++i) {
        mixed += "{\"k\":[";
    }
    EXPECT_EQ(ReadFailure(mixed).code, 5);
    // Far deeper input fails the same way instead of exhausting the stack.
    EXPECT_EQ(ReadFailure(std::string(1000000, '[')).code, 5);
}

TEST(JSONReaderSyntax, AcceptedFormsNumbersAndStrings) {
    for (const char* text : {"// x\n{}", "{} /* x", "/{}", "[1/]", "[-0.0e-0]", "\xEF\xBB\xBF{}"}) {
        EXPECT_NE(ReadOk(text), nullptr);
    }
    EXPECT_NE(ReadOk("[1,]", JSONReader::JSON_ALLOW_TRAILING_COMMAS), nullptr);
    int32_t k = 0;
    EXPECT_TRUE(Dict(ReadOk("{/*a*/\"k\"/**/:// c\r7 /* \n */}"))->GetInteger("k", &k) && k == 7);

    // Integers only where they fit.
    Taken root = ReadOk(
        "[2147483647, 2147483648, -2147483648, -2147483649, 3.0, 1e2, -0, 0.01,"
        " 12345678901234567890, 1e-400, true, null]");
    ListValue* list = nullptr;
    ASSERT_TRUE(root->GetAsList(&list));
    std::string types;
    for (std::size_t i = 0; i < list->GetSize(); ++i) {
        const Value* v = nullptr;
        types += list->Get(i, &v) ? std::to_string(v->GetType()) : "?";
    }
    const std::string I = std::to_string(Value::TYPE_INTEGER),
                      D = std::to_string(Value::TYPE_DOUBLE);
    EXPECT_EQ(types, I + D + I + D + D + D + I + D + D + D + std::to_string(Value::TYPE_BOOLEAN) +
                         std::to_string(Value::TYPE_NULL));
    int32_t i = 0;
    double d = 0;
    EXPECT_TRUE(list->GetInteger(2, &i) && i == -2147483647 - 1);
    EXPECT_TRUE(list->GetDouble(1, &d) && d == 2147483648.0);

    const std::pair<const char*, const char*> strings[] = {
        {"\"a\\\"\\/\\\\\\b\\f\\n\\r\\t\\v\"", "a\"/\\\b\f\n\r\t\v"},
        {"\"\\x41\\x7a\\xff\"", "Az\xff"},  // a \x byte goes in raw, UTF-8 or not
        {"\"\\u00e9\\uD83D\\uDE00\"", "\xC3\xA9\xF0\x9F\x98\x80"},
        {"\"a\\u0000b\"", "ab"},
        {"\"tab\there\nnl\"", "tab\there\nnl"},  // raw control characters stay
        // Just outside the refused ranges.
        {"\"\xEF\xB7\x8F\xEF\xB7\xB0\xEF\xBF\xBD\"", "\xEF\xB7\x8F\xEF\xB7\xB0\xEF\xBF\xBD"},
        {"\"\xC3\xA9x\\x41y\\n\\tb\"", "\xC3\xA9xAy\n\tb"},
    };
    for (const auto& [json, expected] : strings) {
        EXPECT_EQ(ReadString(json), expected) << json;
    }
}

TEST(JSONReaderDictionaries, KeysAreLiteralAndTheLastDuplicateWins) {
    Taken root = ReadOk("{\"a.b\": 1, \"a\": 1, \"a\": {\"b\": \"x\"}, \"\": 5}");
    DictionaryValue* dict = Dict(root);
    ASSERT_NE(dict, nullptr);
    std::string s;
    EXPECT_TRUE(dict->GetString("a.b", &s) && s == "x");  // reaches {"a": {"b": ...}}
    const Value* literal = nullptr;
    int32_t i = 0;
    EXPECT_TRUE(dict->GetWithoutPathExpansion("a.b", &literal) && literal->GetAsInteger(&i) &&
                i == 1);
    EXPECT_TRUE(dict->GetInteger("", &i) && i == 5);
    EXPECT_EQ(dict->size(), 3u);
    // A key spelled with an escape is the same key.
    root = ReadOk("{\"ab\": 1, \"a\\u0062\": 2}");
    EXPECT_TRUE(Dict(root)->size() == 1 && Dict(root)->GetInteger("ab", &i) && i == 2);
}

// What leaves a parsed tree must own its text: under ASan a string still
// pointing into the freed root shows.
TEST(JSONReaderBorrowing, WhatLeavesAnyLevelOutlivesTheRoot) {
    const char* expected[] = {"\"some text\"", "\"more text\"", "{\"m\": \"some text\"}",
                              "{\"m\": \"some text\"}", "[\"more text\"]"};
    for (int way = 0; way < 5; ++way) {
        SCOPED_TRACE(way);
        Taken root =
            JSONReader::Read("{\"n\":{\"m\":\"some text\"},\"l\":[\"more text\"],\"s\":\"top\"}");
        DictionaryValue* n = nullptr;
        ListValue* l = nullptr;
        const Value* top = nullptr;
        ASSERT_TRUE(Dict(root)->GetDictionary("n", &n) && Dict(root)->GetList("l", &l) &&
                    Dict(root)->Get("s", &top));
        // A borrowed node is a string, but no StringValue.
        EXPECT_FALSE(top->GetAsStringValue(nullptr));
        Taken taken;
        auto dict = std::make_unique<DictionaryValue>();
        auto list = std::make_unique<ListValue>();
        if (way == 0) {
            EXPECT_TRUE(n->RemoveWithoutPathExpansion("m", &taken));
        } else if (way == 1) {
            EXPECT_TRUE(l->Remove(0, &taken));
        } else if (way == 4) {
            l->Swap(list.get());
            taken = std::move(list);
        } else {
            // Either side of the swap may be the one that detaches.
            way == 2 ? n->Swap(dict.get()) : dict->Swap(n);
            taken = std::move(dict);
        }
        root.reset();
        EXPECT_TRUE(taken && taken->Equals(ReadOk(expected[way]).get())) << expected[way];
    }
}

// Trees that borrow nothing hand out their own nodes, not copies.
TEST(JSONReaderBorrowing, DetachableAndEscapedTreesHandOutTheirOwnNodes) {
    auto by_hand = std::make_unique<DictionaryValue>();
    by_hand->SetString("n.m", "x");
    Taken sources[] = {
        ReadOk("{\"n\":{\"m\":\"x\"}}", JSONReader::JSON_DETACHABLE_CHILDREN),
        ReadOk("{\"n\":{\"m\":\"\\u0078\"}}"),
        std::move(by_hand),
    };
    for (auto& source : sources) {
        DictionaryValue* n = nullptr;
        const Value* m = nullptr;
        const base::StringValue* sv = nullptr;
        ASSERT_TRUE(Dict(source)->GetDictionary("n", &n) && n->Get("m", &m));
        EXPECT_TRUE(m->GetAsStringValue(&sv) && sv->GetString() == "x");
        Taken out, level;
        ASSERT_TRUE(n->RemoveWithoutPathExpansion("m", &out));
        EXPECT_EQ(out.get(), m);
        ASSERT_TRUE(Dict(source)->RemoveWithoutPathExpansion("n", &level));
        EXPECT_EQ(level.get(), n);
    }
    // Borrowed and detached trees are equal, and a deep copy outlives its source.
    const std::string text = "{\"a\": [1, 2.5, \"x\", \"\\u00e9\", true, null, {}], \"b\": \"d\"}";
    Taken borrowed = JSONReader::Read(text);
    Taken detached = ReadOk(text, JSONReader::JSON_DETACHABLE_CHILDREN);
    ASSERT_TRUE(borrowed && detached);
    EXPECT_TRUE(borrowed->Equals(detached.get()) && detached->Equals(borrowed.get()));
    Taken copy = borrowed->CreateDeepCopy();
    borrowed.reset();
    EXPECT_TRUE(copy->Equals(detached.get()));
    EXPECT_FALSE(copy->Equals(JSONReader::Read("{\"a\": [1, 2.5, \"y\"]}").get()));
    std::wstring wide;
    EXPECT_TRUE(Dict(ReadOk("{\"u\": \"\xE4\xB8\xAD\"}"))->GetString("u", &wide));
    EXPECT_EQ(wide, std::wstring(1, static_cast<wchar_t>(0x4E2D)));
}

}  // namespace
