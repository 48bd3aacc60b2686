#include "base/values.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using base::BinaryValue;
using base::DictionaryValue;
using base::FundamentalValue;
using base::ListValue;
using base::StringValue;
using base::Value;

TEST(Value, EachNodeAnswersOnlyForItsOwnType) {
    Value null_node;
    FundamentalValue boolean(true), integer(7), real(2.5);
    StringValue text("t");
    DictionaryValue dict;
    ListValue list;
    const Value* all[] = {&null_node, &boolean, &integer, &real, &text, &dict, &list};
    for (const Value* v : all) {
        const Value::Type t = v->GetType();
        EXPECT_EQ(v->GetAsBoolean(nullptr), t == Value::TYPE_BOOLEAN) << t;
        EXPECT_EQ(v->GetAsInteger(nullptr), t == Value::TYPE_INTEGER) << t;
        // Integers convert to double as well.
        EXPECT_EQ(v->GetAsDouble(nullptr), t == Value::TYPE_DOUBLE || t == Value::TYPE_INTEGER);
        EXPECT_EQ(v->GetAsString(static_cast<std::string*>(nullptr)), t == Value::TYPE_STRING);
        EXPECT_EQ(v->GetAsDictionary(static_cast<const DictionaryValue**>(nullptr)),
                  t == Value::TYPE_DICTIONARY);
        EXPECT_EQ(v->GetAsList(static_cast<const ListValue**>(nullptr)), t == Value::TYPE_LIST);
        EXPECT_FALSE(v->GetAsBinary(nullptr));
    }
    double d = 0;
    EXPECT_TRUE(integer.GetAsDouble(&d) && d == 7.0);
    int32_t i = 99;
    EXPECT_FALSE(real.GetAsInteger(&i));
    EXPECT_EQ(i, 99);  // untouched on failure
    std::wstring wide;
    EXPECT_TRUE(StringValue("\xC3\xA9").GetAsWideString(&wide));
    EXPECT_EQ(wide, std::wstring(1, static_cast<wchar_t>(0xE9)));
}

TEST(Value, EqualsAndDeepCopyFollowTypeAndContent) {
    Value a, b;
    FundamentalValue one(1), one_double(1.0);
    EXPECT_TRUE(a.Equals(&b));
    EXPECT_FALSE(a.Equals(nullptr));
    EXPECT_FALSE(one.Equals(&one_double));  // same number, different type
    EXPECT_FALSE(a.Equals(&one));
    EXPECT_FALSE(StringValue("1").Equals(&one));

    DictionaryValue tree;
    tree.SetInteger("a.b", 1);
    tree.SetString("a.c", "x");
    auto* list = new ListValue();
    list->AppendBoolean(false);
    list->Append(new Value());
    list->AppendDouble(0.5);
    tree.Set("l", list);
    const char bytes[] = {0, 1, 2};
    tree.Set("bin", BinaryValue::CreateWithCopiedBuffer(bytes, 3));

    std::unique_ptr<DictionaryValue> copy = tree.CreateDeepCopy();
    EXPECT_TRUE(copy->Equals(&tree) && tree.Equals(copy.get()));
    const Value* copied_list = nullptr;
    ASSERT_TRUE(copy->Get("l", &copied_list));
    EXPECT_NE(copied_list, list);  // the copy shares nothing
    copy->SetString("a.c", "y");
    EXPECT_FALSE(copy->Equals(&tree));
    copy->SetString("a.c", "x");
    list->AppendInteger(3);
    EXPECT_FALSE(copy->Equals(&tree));
}

TEST(DictionaryValue, PathsWalkLevelsWhileHasKeyIsLiteral) {
    DictionaryValue dict;
    dict.SetWithoutPathExpansion("a.b", new FundamentalValue(1));
    dict.SetString("x.y.z", "deep");
    EXPECT_TRUE(dict.HasKey("a.b"));
    EXPECT_FALSE(dict.GetInteger("a.b", nullptr));
    EXPECT_FALSE(dict.HasKey("x.y"));
    std::string s;
    EXPECT_TRUE(dict.GetString("x.y.z", &s) && s == "deep");
    const char path[] = "x.y.zzz";
    const Value* v = nullptr;
    EXPECT_TRUE(dict.Get(path, 5, &v) && v->GetType() == Value::TYPE_STRING);  // "x.y.z"
    EXPECT_FALSE(dict.Get(path, sizeof path - 1, &v));
    EXPECT_TRUE(dict.GetDictionary("x.y", nullptr));
    EXPECT_FALSE(dict.GetList("x.y", nullptr));
    // A level that isn't a dictionary ends the walk.
    EXPECT_FALSE(dict.GetString("x.y.z.w", &s));
    // Empty parts are looked up as the empty key.
    dict.SetInteger(".e", 5);
    int32_t i = 0;
    EXPECT_TRUE(dict.GetInteger(".e", &i) && i == 5);
    EXPECT_TRUE(dict.GetDictionaryWithoutPathExpansion("", nullptr));

    // Set replaces what stands in the way but keeps a dictionary on the path.
    dict.SetInteger("a", 1);
    dict.Set("a.b", new StringValue("v"));
    dict.SetBoolean("a.c", true);
    const DictionaryValue* a = nullptr;
    ASSERT_TRUE(dict.GetDictionary("a", &a));
    EXPECT_EQ(a->size(), 2u);
    Value* c = nullptr;
    ASSERT_TRUE(dict.Get("a.c", &c));
    dict.Set("a.c", c);  // replaced by itself
    bool b = false;
    EXPECT_TRUE(dict.GetBoolean("a.c", &b) && b);
    dict.Set("ignored", static_cast<Value*>(nullptr));
    EXPECT_FALSE(dict.HasKey("ignored"));
}

TEST(DictionaryValue, IteratesInByteOrderOfKeys) {
    DictionaryValue dict;
    for (const char* key : {"b", "a", "B", "\xC3\xA9", "a.b", ""}) {
        dict.SetWithoutPathExpansion(key, new StringValue(key));
    }
    std::vector<std::string> keys;
    for (DictionaryValue::Iterator it(dict); !it.IsAtEnd(); it.Advance()) {
        std::string s;
        EXPECT_TRUE(it.value().GetAsString(&s) && s == it.key());
        keys.push_back(it.key());
    }
    EXPECT_EQ(keys, (std::vector<std::string>{"", "B", "a", "a.b", "b", "\xC3\xA9"}));
    std::size_t n = 0;
    for (const auto& entry : dict) {
        EXPECT_EQ(entry.first, keys[n++]);
    }
    EXPECT_EQ(n, keys.size());
}

TEST(DictionaryValue, RemovalSwapAndFrom) {
    DictionaryValue dict;
    dict.SetInteger("a.b.c", 1);
    dict.SetInteger("a.x", 2);
    dict.SetInteger("k.l", 3);
    std::unique_ptr<Value> out;
    int32_t i = 0;
    EXPECT_FALSE(dict.Remove("a.b.missing", &out));
    EXPECT_TRUE(dict.Remove("a.x", &out) && out->GetAsInteger(&i) && i == 2);
    // RemovePath also drops the levels it empties; Remove doesn't.
    EXPECT_TRUE(dict.RemovePath("a.b.c", nullptr));
    EXPECT_FALSE(dict.HasKey("a"));
    EXPECT_TRUE(dict.Remove("k.l", nullptr));
    EXPECT_TRUE(dict.RemoveWithoutPathExpansion("k", nullptr));
    EXPECT_TRUE(dict.empty());

    DictionaryValue other;
    other.SetString("o", "x");
    dict.Swap(&other);
    EXPECT_TRUE(dict.HasKey("o") && other.empty());

    EXPECT_NE(DictionaryValue::From(std::unique_ptr<Value>(new DictionaryValue())), nullptr);
    EXPECT_EQ(DictionaryValue::From(std::make_unique<ListValue>()), nullptr);
    EXPECT_EQ(DictionaryValue::From(nullptr), nullptr);
}

TEST(ListValue, AccessorsCheckRangeAndType) {
    ListValue list;
    list.AppendString("s");
    list.Append(new DictionaryValue());
    list.AppendInteger(4);
    list.Append(std::unique_ptr<Value>());  // ignored
    EXPECT_EQ(list.GetSize(), 3u);
    std::string s;
    DictionaryValue* d = nullptr;
    EXPECT_TRUE(list.GetString(0, &s) && s == "s");
    EXPECT_FALSE(list.GetString(1, &s) || list.GetString(3, &s));
    EXPECT_TRUE(list.GetDictionary(1, &d));
    EXPECT_FALSE(list.GetDictionary(0, &d) || list.GetDictionary(3, &d));
    EXPECT_FALSE(list.GetList(1, nullptr));

    std::unique_ptr<Value> out;
    EXPECT_FALSE(list.Remove(3, &out));
    EXPECT_TRUE(list.Remove(0, &out) && out->GetAsString(&s));
    EXPECT_TRUE(list.GetDictionary(0, &d));  // later elements move up
    ListValue other;
    other.Swap(&list);
    EXPECT_EQ(list.GetSize() * 10 + other.GetSize(), 2u);
}

}  // namespace
