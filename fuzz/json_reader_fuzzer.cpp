// Feeds arbitrary bytes to the JSON reader with and without its options,
// and checks what must hold for any input: a tree equals its deep copy, the
// borrowing and the plain (detachable) reads agree on the tree or on the
// error and its position, the lenient options accept whatever the strict
// ones accept and read the same tree, a failure names a known error and a
// position, and what leaves a root stays readable after the root is gone.
// A number, or a plain list of them, reads as std::from_chars reads each.

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "base/json/json_reader.h"
#include "base/values.h"

using base::DictionaryValue;
using base::JSONReader;
using base::ListValue;
using base::Value;

namespace {

void Check(bool ok) {
    if (!ok) {
        std::abort();
    }
}

struct Outcome {
    int32_t code = -1;
    int32_t line = -1;
    int32_t column = -1;
};

std::unique_ptr<Value> ReadChecked(const char* text, std::size_t length, int32_t options,
                                   Outcome* outcome = nullptr) {
    int32_t code = -1, line = -1, column = -1;
    std::string message;
    std::unique_ptr<Value> root =
        JSONReader::ReadAndReturnError(text, length, options, &code, &message, &line, &column);
    if (outcome) {
        *outcome = {code, line, column};
    }
    if (!root) {
        Check(code >= JSONReader::JSON_INVALID_ESCAPE &&
              code <= JSONReader::JSON_UNQUOTED_DICTIONARY_KEY);
        Check(line >= 1 && column >= 0);
        Check(message ==
              JSONReader::FormatErrorMessage(line, column, JSONReader::ErrorCodeToString(code)));
        return nullptr;
    }
    std::unique_ptr<Value> copy = root->CreateDeepCopy();
    Check(copy->Equals(root.get()) && root->Equals(copy.get()));
    return root;
}

// Takes everything out of a parsed root, drops the root and compares what
// was taken with a copy made before.
void CheckDetach(std::unique_ptr<Value> root) {
    std::unique_ptr<Value> before = root->CreateDeepCopy();
    DictionaryValue* dict = nullptr;
    ListValue* list = nullptr;
    if (root->GetAsDictionary(&dict)) {
        DictionaryValue taken;
        dict->Swap(&taken);
        root.reset();
        Check(taken.Equals(before.get()));
    } else if (root->GetAsList(&list)) {
        std::unique_ptr<Value> first;
        if (list->GetSize() > 0) {
            list->Remove(0, &first);
        }
        root.reset();
        const ListValue* original = nullptr;
        Check(before->GetAsList(&original));
        const Value* expected = nullptr;
        if (first) {
            Check(original->Get(0, &expected) && first->Equals(expected));
        }
    }
}

// A double node is what from_chars gives for its text, to the bit.
void CheckNumber(std::string_view text, const Value& node) {
    double expected = 0, read = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), expected);
    if (result.ec == std::errc() && result.ptr == text.data() + text.size() &&
        node.GetAsDouble(&read)) {
        // An integer node has no sign of zero: "-0" is the integer 0.
        Check(node.GetType() == Value::TYPE_INTEGER
                  ? read == expected
                  : std::memcmp(&read, &expected, sizeof read) == 0);
    }
}

// For a number, or a flat list with nothing but commas between its elements.
void CheckNumbers(std::string_view text, const Value& root) {
    const ListValue* list = nullptr;
    if (!root.GetAsList(&list)) {
        CheckNumber(text, root);
        return;
    }
    if (text.size() < 2 || text.front() != '[' || text.back() != ']' ||
        text.find_first_of(" \t\r\n/") != std::string_view::npos) {
        return;
    }
    text = text.substr(1, text.size() - 2);
    if (text.find_first_of("[]{}\"") != std::string_view::npos) {
        return;
    }
    for (std::size_t i = 0; i < list->GetSize(); ++i) {
        const std::size_t comma = text.find(',');
        const Value* element = nullptr;
        Check(list->Get(i, &element));
        CheckNumber(text.substr(0, comma), *element);
        text = comma == std::string_view::npos ? std::string_view() : text.substr(comma + 1);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    const char* text = reinterpret_cast<const char*>(data);
    Outcome borrowing_outcome, plain_outcome;
    std::unique_ptr<Value> strict =
        ReadChecked(text, size, JSONReader::JSON_PARSE_RFC, &borrowing_outcome);
    // The same options without borrowing: the same tree, or the same error
    // at the same place.
    std::unique_ptr<Value> plain =
        ReadChecked(text, size, JSONReader::JSON_DETACHABLE_CHILDREN, &plain_outcome);
    Check((strict == nullptr) == (plain == nullptr));
    if (strict) {
        Check(strict->Equals(plain.get()) && plain->Equals(strict.get()));
    } else {
        Check(borrowing_outcome.code == plain_outcome.code &&
              borrowing_outcome.line == plain_outcome.line &&
              borrowing_outcome.column == plain_outcome.column);
    }
    // Detachable reads the caller's bytes in place, so any read past the end
    // shows up here.
    std::unique_ptr<Value> lenient = ReadChecked(
        text, size, JSONReader::JSON_ALLOW_TRAILING_COMMAS | JSONReader::JSON_DETACHABLE_CHILDREN);
    if (strict) {
        CheckNumbers(std::string_view(text, size), *strict);
        Check(lenient != nullptr);
        Check(strict->Equals(lenient.get()) && lenient->Equals(strict.get()));
        CheckDetach(std::move(strict));
    }
    return 0;
}
