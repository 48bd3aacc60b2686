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

struct Failure {
    int32_t code = -1;
    std::string message;
    int32_t line = -1;
    int32_t column = -1;
};

Failure ReadFailure(const std::string& text, int32_t options = 0) {
    Failure f;
    EXPECT_EQ(
        JSONReader::ReadAndReturnError(text, options, &f.code, &f.message, &f.line, &f.column),
        nullptr)
        << text;
    return f;
}

std::unique_ptr<Value> ReadOk(const std::string& text, int32_t options = 0) {
    int32_t code = -1;
    std::string message;
    std::unique_ptr<Value> root = JSONReader::ReadAndReturnError(text, options, &code, &message);
    EXPECT_NE(root, nullptr) << text << " -> " << message;
    return root;
}

DictionaryValue* Dict(const std::unique_ptr<Value>& root) {
    DictionaryValue* dict = nullptr;
    EXPECT_TRUE(root && root->GetAsDictionary(&dict));
    return dict;
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

TEST(JSONReaderErrors, CodeLineColumnAndMessage) {
    const int32_t kTrailing = JSONReader::JSON_ALLOW_TRAILING_COMMAS;
    struct Case {
        const char* text;
        int32_t code, line, column;  // 0: not checked
        const char* message = nullptr;
        int32_t options = 0;
    } cases[] = {
        {"", 3, 1, 1, "Line: 1, column: 1, Unexpected token."},
        {"{},{}", 6, 1, 3, "Line: 1, column: 3, Unexpected data after root element."},
        {"[1,]", 4, 1, 4, "Line: 1, column: 4, Trailing comma not allowed."},
        {"{\"a\":1,}", 4, 1, 8, "Line: 1, column: 8, Trailing comma not allowed."},
        {"{a:1}", 8, 1, 2, "Line: 1, column: 2, Dictionary keys must be quoted."},
        {"{\"a\" 1}", 2, 1, 6, "Line: 1, column: 6, Syntax error."},
        // After a number its own look-ahead reports first, with the plus one.
        {"[true false]", 2, 1, 6},
        {"{\"a\":true \"b\":2}", 2, 1, 10},
        {"{\"a\":1 \"b\":2}", 2, 1, 8},
        {"[\"a\\q\"]", 1, 1, 4, "Line: 1, column: 4, Invalid escape sequence."},
        {"[\"\xC3\"]", 7, 1, 3, "Line: 1, column: 3, Unsupported encoding. JSON must be UTF-8."},
        // End of text inside a string: no plus one.
        {"\"abc", 2, 1, 4},
        {"[\"a\\", 1, 1, 4},
        // "\r\n" is one line end; those in strings and comments don't count.
        {"{\n  \"a\": 1,\n  b: 2\n}", 8, 3, 4},
        {"[\r\n1,]", 4, 2, 4},
        {"[\"a\nb\", /* \n */ x]", 3, 1, 17},
        {"\xEF\xBB\xBFx", 3, 1, 4},
        // Line ends the look-ahead after a number passes count once.
        {"[1\n\n,x]", 3, 3, 0},
        {"[1 /*\n*/ \n , x]", 3, 2, 5},
        {"{\"a\": 1\r\n,\r\n \"b\": 2\r\n, c}", 8, 4, 4},
        {"[[1\n\n]\n x]", 2, 4, 2},
        {"[1 // note\n\r\n]\n\nx", 6, 5, 2},
        {"[-2.5e3\n,\n1\n\n,]", 4, 5, 3},
        {"[,]", 3, 1, 0, nullptr, kTrailing},
        {"[1,,]", 3, 1, 0, nullptr, kTrailing},
        {"{,}", 8, 1, 0, nullptr, kTrailing},
        // A comment that never ends swallows the value.
        {"/* {}", 3, 1, 0},
        {"// {}", 3, 1, 0},
        {"[tru]", 2, 1, 2},
        {"nul", 2, 1, 0},
        {"True", 3, 1, 0},
        {"[nullx]", 2, 1, 5},
        {"truex", 6, 1, 0},
        {"[\"abc\xFF\"]", 7, 1, 6},
        {"[\"\\n\xC3\xA9\xFF\"]", 7, 1, 7},
        {"{\"\xFF\":1}", 7, 1, 0},
        {"[\"\\uD800\"]", 1, 1, 4}};
    for (const Case& c : cases) {
        Failure f = ReadFailure(c.text, c.options);
        EXPECT_EQ(f.code, c.code) << c.text;
        EXPECT_EQ(f.line, c.line) << c.text;
        if (c.column) {
            EXPECT_EQ(f.column, c.column) << c.text;
        }
        if (c.message) {
            EXPECT_EQ(f.message, c.message) << c.text;
        }
    }
    const std::pair<const char*, int32_t> numbers[] = {
        {"[01]", 204},  {"[1.]", 204},     {"[1e]", 204}, {"[-]", 203},  {"[1e400]", 206},
        {"[1 2]", 204}, {"[-1e999]", 207}, {"[1x]", 203}, {"[.5]", 302}, {"[+1]", 302}};
    for (const auto& n : numbers) {
        Failure f = ReadFailure(n.first);
        EXPECT_EQ(f.code * 100 + f.column, n.second) << n.first;
    }
    for (const char* text :
         {"[\"\x80\"]", "[\"\xFE\"]", "[\"\xC0\x80\"]", "[\"\xE0\x80\xAF\"]", "[\"\xED\xA0\x80\"]",
          "[\"\xEF\xB7\x90\"]", "[\"\xEF\xB7\xAF\"]", "[\"\xEF\xBF\xBE\"]",
          "[\"\xF0\x9F\xBF\xBF\"]", "[\"\xF4\x90\x80\x80\"]", "[\"\xE4\xB8\"]", "[\"\xE4\xB8"}) {
        Failure f = ReadFailure(text);
        EXPECT_EQ(f.code * 100 + f.column, 703) << text;
    }
    for (const char* text :
         {"[\"\\x4\"]", "[\"\\xg0\"]", "[\"\\u12\"]", "[\"\\u12G4\"]", "[\"\\uDC00\"]",
          "[\"\\uD800\\u0041\"]", "[\"\\uD800x\"]", "[\"\\uFDD0\"]", "[\"\\uFFFE\"]",
          "[\"\\uD83F\\uDFFF\"]", "[\"\\U0041\"]"}) {
        EXPECT_EQ(ReadFailure(text).code, 1) << text;
    }
    EXPECT_EQ(JSONReader::FormatErrorMessage(0, 0, "Syntax error."), "Syntax error.");
    EXPECT_EQ(JSONReader::FormatErrorMessage(0, 5, "Syntax error."),
              "Line: 0, column: 5, Syntax error.");
    EXPECT_EQ(JSONReader::ErrorCodeToString(0), "");
}

TEST(JSONReaderErrors, OutputsUntouchedOnSuccessAndReaderKeepsLastError) {
    int32_t code = 42, line = 42, column = 42;
    std::string message = "unchanged";
    EXPECT_NE(JSONReader::ReadAndReturnError("{}", 0, &code, &message, &line, &column), nullptr);
    EXPECT_EQ(code + line + column, 3 * 42);
    EXPECT_EQ(message, "unchanged");

    JSONReader reader;
    EXPECT_EQ(reader.ReadToValue("[1,]", 4), nullptr);
    EXPECT_EQ(reader.error_code(), JSONReader::JSON_TRAILING_COMMA);
    EXPECT_EQ(reader.GetErrorMessage(), "Line: 1, column: 4, Trailing comma not allowed.");
    EXPECT_NE(reader.ReadToValue("[1]", 3), nullptr);
    EXPECT_EQ(reader.error_code(), JSONReader::JSON_NO_ERROR);
    EXPECT_EQ(JSONReader::Read(nullptr, 0), nullptr);
}

// Runs are skipped several bytes at a time: every length around the step.
TEST(JSONReaderErrors, PositionsAfterRunsOfEveryLength) {
    for (std::size_t run = 0; run <= 25; ++run) {
        SCOPED_TRACE(run);
        const std::string spaces(run, ' ');
        const int32_t n = static_cast<int32_t>(run);
        Failure f = ReadFailure("[\n" + spaces + "x]");
        EXPECT_EQ(f.code * 1000 + f.line * 100 + f.column, 3200 + n + 2);
        f = ReadFailure("{}" + spaces + "\t" + spaces + "x");
        EXPECT_EQ(f.code * 1000 + f.column, 6000 + 2 * n + 4);
        EXPECT_NE(ReadOk(spaces + "[1," + spaces + "2]" + spaces), nullptr);
        f = ReadFailure("[" + spaces);
        EXPECT_EQ(f.code * 1000 + f.column, 3000 + n + 2);
        if (run > 12) {
            continue;
        }
        const std::string body(run, 'a');
        EXPECT_EQ(ReadString("\"" + body + "\""), body);
        EXPECT_EQ(ReadString("\"" + body + "\\n\""), body + "\n");
        EXPECT_EQ(ReadString("\"" + body + "\xC3\xA9\""), body + "\xC3\xA9");
        f = ReadFailure("\"" + body);
        EXPECT_EQ(f.code * 1000 + f.column, 2000 + n + 1);
        // Exactly sized, so that a read past the end shows under ASan.
        const std::string text = "\"" + body;
        std::unique_ptr<char[]> exact(new char[text.size()]);
        std::memcpy(exact.get(), text.data(), text.size());
        int32_t code = -1;
        EXPECT_EQ(
            JSONReader::ReadAndReturnError(exact.get(), text.size(),
                                           JSONReader::JSON_DETACHABLE_CHILDREN, &code, nullptr),
            nullptr);
        EXPECT_EQ(code, 2);
    }
}

TEST(JSONReaderSyntax, NestingStopsAtTheHundredthLevel) {
    EXPECT_NE(JSONReader::Read(std::string(99, '[') + std::string(99, ']')), nullptr);
    Failure f = ReadFailure(std::string(100, '[') + std::string(100, ']'));
    EXPECT_EQ(f.code, 5);
    EXPECT_EQ(f.message, "Line: 1, column: 100, Too much nesting.");
    std::string mixed, objects;  // objects and lists count together
    for (int i = 0; i < 50; ++i) {
        mixed += "{\"k\":[";
        objects += "{\"k\":{\"k\":";
    }
    EXPECT_EQ(ReadFailure(mixed).code, 5);
    EXPECT_EQ(ReadFailure(objects).code, 5);
    // Far deeper input fails the same way instead of exhausting the stack.
    EXPECT_EQ(ReadFailure(std::string(1000000, '[')).code, 5);
}

TEST(JSONReaderSyntax, AcceptedForms) {
    const std::pair<const char*, int32_t> ok[] = {
        {"[1,]", JSONReader::JSON_ALLOW_TRAILING_COMMAS},
        {"{\"a\":1,}", JSONReader::JSON_ALLOW_TRAILING_COMMAS},
        {"// x\n{}", 0},
        {"{} /* x", 0},
        {"/{}", 0},
        {"{}/", 0},
        {"[1/]", 0},
        {"0.001", 0},
        {"[-0.0e-0]", 0},
        {"\xEF\xBB\xBF{}", 0},
        {" [ ] ", 0},
    };
    for (const auto& c : ok) {
        EXPECT_NE(ReadOk(c.first, c.second), nullptr);
    }
    int32_t k = 0;
    EXPECT_TRUE(Dict(ReadOk("{/*a*/\"k\"/**/:// c\r7 /* \n */}"))->GetInteger("k", &k));
    EXPECT_EQ(k, 7);
    std::unique_ptr<Value> root = ReadOk("[true, false, null]");
    ListValue* list = nullptr;
    bool b = false;
    const Value* null_node = nullptr;
    ASSERT_TRUE(root->GetAsList(&list));
    EXPECT_TRUE(list->GetBoolean(0, &b) && b);
    EXPECT_TRUE(list->GetBoolean(1, &b) && !b);
    EXPECT_TRUE(list->Get(2, &null_node) && null_node->GetType() == Value::TYPE_NULL);
}

TEST(JSONReaderNumbers, IntegersOnlyWhereTheyFit) {
    std::unique_ptr<Value> root = ReadOk(
        "[3, 2147483647, 2147483648, -2147483648, -2147483649, 3.0, 1e2, -0, 0.01,"
        " 1E+2, 12345678901234567890, 1e-400]");
    ListValue* list = nullptr;
    ASSERT_TRUE(root->GetAsList(&list));
    const Value::Type I = Value::TYPE_INTEGER, D = Value::TYPE_DOUBLE;
    const Value::Type types[] = {I, I, D, I, D, D, D, I, D, D, D, D};
    ASSERT_EQ(list->GetSize(), std::size(types));
    for (std::size_t i = 0; i < list->GetSize(); ++i) {
        const Value* v = nullptr;
        EXPECT_TRUE(list->Get(i, &v) && v->GetType() == types[i]) << "element " << i;
    }
    int32_t i = 0;
    double d = 0;
    EXPECT_TRUE(list->GetInteger(1, &i) && i == 2147483647);
    EXPECT_TRUE(list->GetInteger(3, &i) && i == -2147483647 - 1);
    EXPECT_TRUE(list->GetDouble(2, &d) && d == 2147483648.0);
    EXPECT_TRUE(list->GetDouble(8, &d) && d == 0.01);
    EXPECT_TRUE(list->GetDouble(11, &d) && d == 0.0);
}

TEST(JSONReaderStrings, EscapesRawCharactersAndRuns) {
    const std::pair<const char*, const char*> cases[] = {
        {"\"a\\\"\\/\\\\\\b\\f\\n\\r\\t\\v\"", "a\"/\\\b\f\n\r\t\v"},
        {"\"\\x41\\x7a\"", "Az"},
        {"\"\\xff\"", "\xff"},  // a \x byte goes in raw, UTF-8 or not
        {"\"\\u00e9\\u4E2D\"", "\xC3\xA9\xE4\xB8\xAD"},
        {"\"\\uD83D\\uDE00\"", "\xF0\x9F\x98\x80"},
        {"\"a\\u0000b\"", "ab"},
        {"\"tab\there\nnl\"", "tab\there\nnl"},
        // Just outside the refused ranges.
        {"\"\xEF\xB7\x8F\xEF\xB7\xB0\xEF\xBF\xBD\"", "\xEF\xB7\x8F\xEF\xB7\xB0\xEF\xBF\xBD"},
        // Runs between escapes keep their order.
        {"\"\\nab\"", "\nab"},
        {"\"a\\n\\tb\"", "a\n\tb"},
        {"\"\xC3\xA9x\\x41y\xE4\xB8\xAD\"", "\xC3\xA9xAy\xE4\xB8\xAD"},
        {"\"one\ttwo\\u0000three\\/\"", "one\ttwothree/"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(ReadString(c.first), c.second) << c.first;
    }
}

TEST(JSONReaderDictionaries, KeysAreLiteralAndTheLastDuplicateWins) {
    std::unique_ptr<Value> root = ReadOk("{\"a.b\": 1, \"a\": 1, \"a\": {\"b\": \"x\"}, \"\": 5}");
    DictionaryValue* dict = Dict(root);
    ASSERT_NE(dict, nullptr);
    std::string s;
    EXPECT_TRUE(dict->GetString("a.b", &s) && s == "x");  // reaches {"a": {"b": ...}}
    const Value* literal = nullptr;
    int32_t i = 0;
    ASSERT_TRUE(dict->GetWithoutPathExpansion("a.b", &literal));
    EXPECT_TRUE(literal->GetAsInteger(&i) && i == 1);
    EXPECT_TRUE(dict->GetInteger("", &i) && i == 5);
    EXPECT_EQ(dict->size(), 3u);
    // A key spelled with an escape is the same key.
    root = ReadOk("{\"ab\": 1, \"a\\u0062\": 2}");
    EXPECT_EQ(Dict(root)->size(), 1u);
    EXPECT_TRUE(Dict(root)->GetInteger("ab", &i) && i == 2);
}

using Taken = std::unique_ptr<Value>;

DictionaryValue* N(DictionaryValue* root) {
    DictionaryValue* n = nullptr;
    EXPECT_TRUE(root->GetDictionary("n", &n));
    return n;
}
ListValue* L(DictionaryValue* root) {
    ListValue* l = nullptr;
    EXPECT_TRUE(root->GetList("l", &l));
    return l;
}

// What leaves a parsed tree must own its text: under ASan a string still
// pointing into the freed root shows.
TEST(JSONReaderBorrowing, WhatLeavesAnyLevelOutlivesTheRoot) {
    const std::pair<Taken (*)(DictionaryValue*), const char*> cases[] = {
        {[](DictionaryValue* r) {
             Taken out;
             EXPECT_TRUE(N(r)->RemoveWithoutPathExpansion("m", &out));
             return out;
         },
         "\"some text\""},
        {[](DictionaryValue* r) {
             Taken out;
             EXPECT_TRUE(L(r)->Remove(0, &out));
             return out;
         },
         "\"more text\""},
        {[](DictionaryValue* r) {  // this side detaches
             auto plain = std::make_unique<DictionaryValue>();
             N(r)->Swap(plain.get());
             return Taken(std::move(plain));
         },
         "{\"m\": \"some text\"}"},
        {[](DictionaryValue* r) {  // the other side detaches
             auto plain = std::make_unique<DictionaryValue>();
             plain->Swap(N(r));
             return Taken(std::move(plain));
         },
         "{\"m\": \"some text\"}"},
        {[](DictionaryValue* r) {
             auto plain = std::make_unique<ListValue>();
             L(r)->Swap(plain.get());
             return Taken(std::move(plain));
         },
         "[\"more text\"]"},
    };
    for (const auto& c : cases) {
        std::unique_ptr<Value> root =
            JSONReader::Read("{\"n\":{\"m\":\"some text\"},\"l\":[\"more text\"],\"s\":\"top\"}");
        // A borrowed node is a string, but no StringValue.
        const Value* top = nullptr;
        ASSERT_TRUE(Dict(root)->Get("s", &top));
        EXPECT_FALSE(top->GetAsStringValue(nullptr));
        Taken taken = c.first(Dict(root));
        root.reset();
        EXPECT_TRUE(taken && taken->Equals(ReadOk(c.second).get())) << c.second;
    }
}

// Trees that borrow nothing hand out their own nodes, not copies.
TEST(JSONReaderBorrowing, NothingBorrowedMeansNothingCopied) {
    auto by_hand = std::make_unique<DictionaryValue>();
    by_hand->SetString("n.m", "x");
    std::unique_ptr<Value> sources[] = {
        ReadOk("{\"n\":{\"m\":\"x\"}}", JSONReader::JSON_DETACHABLE_CHILDREN),
        ReadOk("{\"n\":{\"m\":\"\\u0078\"}}"),
        std::move(by_hand),
    };
    for (auto& source : sources) {
        DictionaryValue* n = nullptr;
        const Value* m = nullptr;
        ASSERT_TRUE(Dict(source)->GetDictionary("n", &n) && n->Get("m", &m));
        std::unique_ptr<Value> out, level;
        ASSERT_TRUE(n->RemoveWithoutPathExpansion("m", &out));
        EXPECT_EQ(out.get(), m);
        ASSERT_TRUE(Dict(source)->RemoveWithoutPathExpansion("n", &level));
        EXPECT_EQ(level.get(), n);
    }
}

TEST(JSONReaderBorrowing, OwnedStringsCopiesEqualityAndWideText) {
    const base::StringValue* sv = nullptr;
    const Value* v = nullptr;
    std::unique_ptr<Value> root = ReadOk("{\"k\": \"v\"}", JSONReader::JSON_DETACHABLE_CHILDREN);
    ASSERT_TRUE(Dict(root)->Get("k", &v));
    EXPECT_TRUE(v->GetAsStringValue(&sv) && sv->GetString() == "v");
    root = ReadOk("\"alone\"");
    EXPECT_TRUE(root->GetAsStringValue(&sv) && sv->GetString() == "alone");

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
    EXPECT_FALSE(copy->Equals(JSONReader::Read("{\"a\": [1, 2.5, \"y\"]}").get()));

    root = JSONReader::Read("{\"p\": \"C:/dir\", \"u\": \"\xE4\xB8\xAD\"}");
    std::wstring wide;
    EXPECT_TRUE(Dict(root)->GetString("p", &wide) && wide == L"C:/dir");
    EXPECT_TRUE(Dict(root)->GetString("u", &wide));
    EXPECT_EQ(wide, std::wstring(1, static_cast<wchar_t>(0x4E2D)));
}

}  // namespace
