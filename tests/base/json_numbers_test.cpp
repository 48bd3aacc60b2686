#include <gtest/gtest.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "base/json/json_reader.h"
#include "base/values.h"

// Most doubles are converted by the reader's own integer arithmetic, the
// rest by std::from_chars; either way every bit must be what from_chars
// gives for the same text.
namespace {

void ExpectSameAsFromChars(const std::vector<std::string>& numbers) {
    std::string text = "[";
    for (const std::string& number : numbers) {
        text += number + ",";
    }
    text.back() = ']';
    auto root = base::JSONReader::Read(text);
    base::ListValue* list = nullptr;
    ASSERT_TRUE(root && root->GetAsList(&list) && list->GetSize() == numbers.size());
    int mismatches = 0;
    for (std::size_t i = 0; i < numbers.size() && mismatches < 5; ++i) {
        const std::string& number = numbers[i];
        base::Value* node = nullptr;
        double read = 0, expected = 0;
        ASSERT_TRUE(list->Get(i, &node) && node->GetAsDouble(&read));
        std::from_chars(number.data(), number.data() + number.size(), expected);
        if (std::memcmp(&read, &expected, sizeof read) != 0) {
            ++mismatches;
            ADD_FAILURE() << number << " read as " << read << ", not " << expected;
        }
    }
}

// Ties to even, ties below the point, the power table's edges, many digits, the extremes.
TEST(JSONReaderNumbers, TiesAndBoundaries) {
    ExpectSameAsFromChars({"9007199254740993", "-9007199254740995.0", "4503599627370497.5", "1e-54",
                           "1e-55", "1e55", "1e56", "9999999999999999999e55", "0.3", "1e23",
                           "123456789012345678.9", "18446744073709551615",
                           "1.00000000000000011102230246251565404236316680908203125",
                           "0.0000000000000000000000000000000000000000000000000000001", "-0.0",
                           "1.7976931348623157e308", "2.2250738585072011e-308", "4.9e-324"});
}

// The decimal digits of a number given as decimal digits, times 2 or 5.
std::string Times(const std::string& digits, int factor) {
    std::string product(digits.size() + 1, '0');
    int carry = 0;
    for (std::size_t i = digits.size(); i-- > 0;) {
        const int d = (digits[i] - '0') * factor + carry;
        product[i + 1] = static_cast<char>('0' + d % 10);
        carry = d / 10;
    }
    product[0] = static_cast<char>('0' + carry);
    return carry == 0 ? product.substr(1) : product;
}

TEST(JSONReaderNumbers, RandomTextsNearRoundingBoundaries) {
    std::mt19937_64 random(20261124);
    std::vector<std::string> numbers;
    while (numbers.size() < 40000) {
        // The exact midpoint between two neighbouring doubles, (2m + 1) x
        // 2^b, cut to 15 to 19 digits and nudged by one in the last: the
        // hardest short texts.
        const uint64_t m = (1ull << 52) | (random() >> 12);
        const int b = static_cast<int>(random() % 440) - 190;
        std::string digits = std::to_string(2 * m + 1);
        for (int i = 0; i < std::abs(b); ++i) {
            digits = Times(digits, b < 0 ? 5 : 2);
        }
        const int exponent = static_cast<int>(digits.size()) - 1 + (b < 0 ? b : 0);
        digits.resize(std::min<std::size_t>(digits.size(), 15 + random() % 5));
        char& last = digits.back();
        last = static_cast<char>(last + (last < '9' ? static_cast<int>(random() % 2) : -1));
        numbers.push_back(digits.substr(0, 1) + "." + digits.substr(1) + "e" +
                          std::to_string(exponent));
        // A plain decimal of up to 21 digits.
        const std::string plain = std::to_string(random() % 1000000000) + "." +
                                  std::to_string(random() >> (random() % 64));
        numbers.push_back(random() % 2 ? plain : "-" + plain);
    }
    ExpectSameAsFromChars(numbers);
}

}  // namespace
