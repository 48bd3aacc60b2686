// Feeds arbitrary bytes to the JSON reader with and without its options,
// and checks what must hold for any input: a tree equals its deep copy, the
// borrowing and the plain (detachable) reads agree on the tree or on the
// error and its position, the lenient options accept whatever the strict
// ones accept and read the same tree, a failure names a known error and a
// position, and what leaves a root stays readable after the root is gone.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

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
        Check(lenient != nullptr);
        Check(strict->Equals(lenient.get()) && lenient->Equals(strict.get()));
        CheckDetach(std::move(strict));
    }
    return 0;
}
