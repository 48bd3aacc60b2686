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

// "code|line:column", or "code|message" when `withMessage`.
std::string ReadFailure(const std::string& text, int32_t options = 0, bool withMessage = false) {
    int32_t code = -1, line = -1, column = -1;
    std::string message;
    EXPECT_FALSE(JSONReader::ReadAndReturnError(text, options, &code, &message, &line, &column))
        << text;
    return std::to_string(code) + "|" +
           (withMessage ? message : std::to_string(line) + ":" + std::to_string(column));
}

Taken ReadOk(const std::string& text, int32_t options = 0) {
    std::string message;
    Taken root = JSONReader::ReadAndReturnError(text, options, nullptr, &message);
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
    const std::pair<const char*, const char*> cases[] = {
        // clang-format off
        {"", "3|Line: 1, column: 1, Unexpected token."},
        {"{},{}", "6|Line: 1, column: 3, Unexpected data after root element."},
        {"{\"a\":1,}", "4|Line: 1, column: 8, Trailing comma not allowed."},
        {"{a:1}", "8|Line: 1, column: 2, Dictionary keys must be quoted."},
        {"{\"a\" 1}", "2|Line: 1, column: 6, Syntax error."},
        {"[\"a\\q\"]", "1|Line: 1, column: 4, Invalid escape sequence."},
        {"[\"\xC3\"]", "7|Line: 1, column: 3, Unsupported encoding. JSON must be UTF-8."},
        {"\"abc", "2|1:4"}, {"{\n  \"a\": 1,\n  b: 2\n}", "8|3:4"}, {"[\r\n1,]", "4|2:4"},
        {"[\"a\nb\", /* \n */ x]", "3|1:17"},  // line ends in strings and comments don't count
        {"[1 /*\n*/ \n , x]", "3|2:5"},  // nor twice in a number's look-ahead
        {"[1 // note\n\r\n]\n\nx", "6|5:2"}, {"[\"\\n\xC3\xA9\xFF\"]", "7|1:7"},
        {"[01]", "2|1:4"}, {"[-]", "2|1:3"}, {"[1e400]", "2|1:6"}, {"[1x]", "2|1:3"},
        {"/* {}", "3|1:6"}, {"[.5]", "3|1:2"}, {"[\"\x80\"]", "7|1:3"}, {"[\"\xC0\x80\"]", "7|1:3"},
        {"[\"\xED\xA0\x80\"]", "7|1:3"}, {"[\"\xEF\xBF\xBE\"]", "7|1:3"}, {"[\"\xE4\xB8", "7|1:3"},
        {"[\"\xF4\x90\x80\x80\"]", "7|1:3"}, {"[\"\\x4\"]", "1|1:4"}, {"[\"\\u12G4\"]", "1|1:4"},
        {"[\"\\uDC00\"]", "1|1:4"}, {"[\"\\uD800\\u0041\"]", "1|1:4"}, {"[\"\\uFDD0\"]", "1|1:4"},
        {"[\"\\U0041\"]", "1|1:3"}, {"\xEF\xBB\xBFx", "3|1:4"},
        // clang-format on
    };
    for (const auto& [text, expected] : cases) {
        EXPECT_EQ(ReadFailure(text, 0, std::strstr(expected, "Line")), expected) << text;
    }
    EXPECT_EQ(ReadFailure("[1,,]", kTrailing) + " " + ReadFailure("{,}", kTrailing), "3|1:4 8|1:2");

    // A reader keeps only its last error.
    JSONReader reader;
    EXPECT_EQ(reader.ReadToValue("[1,]", 4), nullptr);
    EXPECT_EQ(reader.GetErrorMessage(), "Line: 1, column: 4, Trailing comma not allowed.");
    EXPECT_TRUE(reader.ReadToValue("[1]", 3) && reader.error_code() == JSONReader::JSON_NO_ERROR);
}

// Runs are skipped several bytes at a time: every length around the step.
TEST(JSONReaderErrors, PositionsAfterRunsOfEveryLength) {
    // Past two blocks of the widest scan.
    for (std::size_t run = 0; run <= 40; ++run) {
        SCOPED_TRACE(run);
        const std::string spaces(run, ' '), body(run, 'a');
        EXPECT_EQ(ReadFailure("[\n" + spaces + "x]"), "3|2:" + std::to_string(run + 2));
        EXPECT_EQ(ReadString("\"" + body + "\\n\xC3\xA9" + body + "\\t\""),
                  body + "\n\xC3\xA9" + body + "\t");
        EXPECT_EQ(ReadFailure("[\"" + body + "\xFF" + body + "\"]"),
                  "7|1:" + std::to_string(run + 3));
        // Exactly sized and read in place (the detachable option takes no
        // copy), so that a read past the end shows under ASan; the second
        // string is read by the decoding scan.
        for (const std::string& text : {"\"" + body, "\"\\n" + body}) {
            std::unique_ptr<char[]> exact(new char[text.size()]);
            std::memcpy(exact.get(), text.data(), text.size());
            int32_t code = -1;
            EXPECT_TRUE(!JSONReader::ReadAndReturnError(exact.get(), text.size(),
                                                        JSONReader::JSON_DETACHABLE_CHILDREN, &code,
                                                        nullptr) &&
                        code == 2);
        }
    }
}

TEST(JSONReaderSyntax, NestingFormsNumbersStringsAndKeys) {
    EXPECT_NE(JSONReader::Read(std::string(99, '[') + std::string(99, ']')), nullptr);
    EXPECT_EQ(ReadFailure(std::string(100, '[') + std::string(100, ']'), 0, true),
              "5|Line: 1, column: 100, Too much nesting.");
    std::string mixed;  // objects and lists count together
    for (int i = 0; i < 50; ++i) {
        mixed += "{\"k\":[";
    }
    // Far deeper input fails the same way instead of exhausting the stack.
    EXPECT_EQ(ReadFailure(mixed).substr(0, 2) + ReadFailure(std::string(1000000, '[')).substr(0, 2),
              "5|5|");
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
    std::string types;  // first letters of the type names
    for (std::size_t i = 0; i < list->GetSize(); ++i) {
        const Value* v = nullptr;
        types += list->Get(i, &v) ? "NBIDS"[v->GetType()] : '?';
    }
    EXPECT_EQ(types, "IDIDDDIDDDBN");
    int32_t i = 0;
    double d = 0;
    EXPECT_TRUE(list->GetInteger(2, &i) && i == -2147483647 - 1 && list->GetDouble(1, &d) &&
                d == 2147483648.0);

    const std::pair<const char*, const char*> strings[] = {
        {"\"a\\\"\\/\\\\\\b\\f\\n\\r\\t\\v\"", "a\"/\\\b\f\n\r\t\v"},
        {"\"\\x41\\x7a\\xff\"", "Az\xff"},  // a \x byte goes in raw, UTF-8 or not
        {"\"\\u00e9\\uD83D\\uDE00\"", "\xC3\xA9\xF0\x9F\x98\x80"},
        {"\"a\\u0000b\"", "ab"},
        {"\"tab\there\nnl\"", "tab\there\nnl"},  // raw control characters stay
        // Just outside the refused ranges.
        {"\"\xEF\xB7\x8F\xEF\xB7\xB0\xEF\xBF\xBD\"", "\xEF\xB7\x8F\xEF\xB7\xB0\xEF\xBF\xBD"},
    };
    for (const auto& [json, expected] : strings) {
        EXPECT_EQ(ReadString(json), expected) << json;
    }

    // Keys are literal; one spelled with an escape is the same key, and the last one wins.
    root = ReadOk("{\"ab\": 1, \"a.b\": 3, \"a\\u0062\": 2}");
    const Value* literal = nullptr;
    EXPECT_TRUE(Dict(root)->size() == 2 && Dict(root)->GetInteger("ab", &i) && i == 2 &&
                Dict(root)->GetWithoutPathExpansion("a.b", &literal) && literal->GetAsInteger(&k) &&
                k == 3);
}

// What leaves a parsed tree must own its text: under ASan a string still
// pointing into the freed root shows.
TEST(JSONReaderBorrowing, WhatLeavesAnyLevelOutlivesTheRoot) {
    const char* expected[] = {"\"some text\"", "\"more text\"", "{\"m\": \"some text\"}",
                              "{\"m\": \"some text\"}", "[\"more text\"]"};
    for (int way = 0; way < 5; ++way) {
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
    for (const Taken& source :
         {ReadOk("{\"n\":{\"m\":\"x\"}}", JSONReader::JSON_DETACHABLE_CHILDREN),
          ReadOk("{\"n\":{\"m\":\"\\u0078\"}}")}) {
        DictionaryValue* n = nullptr;
        const Value* m = nullptr;
        const base::StringValue* sv = nullptr;
        ASSERT_TRUE(Dict(source)->GetDictionary("n", &n) && n->Get("m", &m));
        EXPECT_TRUE(m->GetAsStringValue(&sv) && sv->GetString() == "x");
        Taken out, level;
        EXPECT_TRUE(n->RemoveWithoutPathExpansion("m", &out) && out.get() == m);
        EXPECT_TRUE(Dict(source)->RemoveWithoutPathExpansion("n", &level) && level.get() == n);
    }
}

}  // namespace
