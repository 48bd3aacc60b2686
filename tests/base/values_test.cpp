#include "base/values.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace {

using base::DictionaryValue;
using base::FundamentalValue;
using base::ListValue;
using base::StringValue;
using base::Value;

TEST(Value, EqualsByTypeAndContentAndDeepCopiesShareNothing) {
    FundamentalValue real(2.5), one(1), one_double(1.0);
    int32_t i = 99;
    double d = 0;
    // Integers read as doubles too; a failed read leaves its output alone.
    EXPECT_TRUE(!real.GetAsInteger(&i) && i == 99 && one.GetAsDouble(&d) && d == 1.0 &&
                !StringValue("t").GetAsBoolean(nullptr) &&
                !ListValue().GetAsDictionary(static_cast<DictionaryValue**>(nullptr)));
    EXPECT_TRUE(Value().Equals(std::make_unique<Value>().get()));
    EXPECT_FALSE(Value().Equals(nullptr) || one.Equals(&one_double) ||
                 StringValue("1").Equals(&one));

    DictionaryValue tree;
    tree.SetString("a.c", "x");
    auto* nested = new ListValue();
    nested->Append(new Value());
    tree.Set("l", nested);
    const char bytes[] = {0, 1, 2};
    tree.Set("bin", base::BinaryValue::CreateWithCopiedBuffer(bytes, 3));
    std::unique_ptr<DictionaryValue> copy = tree.CreateDeepCopy();
    EXPECT_TRUE(copy->Equals(&tree) && tree.Equals(copy.get()));
    const Value* copied = nullptr;
    EXPECT_TRUE(copy->Get("l", &copied) && copied != nested);  // the copy shares nothing
    nested->AppendInteger(3);
    EXPECT_FALSE(copy->Equals(&tree));
}

TEST(DictionaryValue, PathsWalkLevelsWhileHasKeyIsLiteral) {
    DictionaryValue dict;
    dict.SetWithoutPathExpansion("a.b", new FundamentalValue(1));
    dict.SetString("x.y.z", "deep");
    const char path[] = "x.y.zzz";
    const Value* v = nullptr;
    EXPECT_TRUE(dict.HasKey("a.b") && !dict.GetInteger("a.b", nullptr) && !dict.HasKey("x.y") &&
                dict.Get(path, 5, &v) && v->GetType() == Value::TYPE_STRING &&  // "x.y.z"
                !dict.Get(path, sizeof path - 1, &v));
    // A level that isn't a dictionary ends the walk.
    EXPECT_FALSE(dict.GetString("x.y.z.w", static_cast<std::string*>(nullptr)) ||
                 dict.GetList("x.y", nullptr));

    // Set replaces what stands in the way but keeps a dictionary on the path.
    dict.SetInteger("a", 1);
    dict.Set("a.b", new StringValue("v"));
    dict.SetBoolean("a.c", true);
    const DictionaryValue* a = nullptr;
    EXPECT_TRUE(dict.GetDictionary("a", &a) && a->size() == 2u);
    Value* c = nullptr;
    ASSERT_TRUE(dict.Get("a.c", &c));
    dict.Set("a.c", c);  // replaced by itself
    bool b = false;
    EXPECT_TRUE(dict.GetBoolean("a.c", &b) && b);
}

TEST(DictionaryValue, RemovalFromAndListRemoval) {
    DictionaryValue dict;
    dict.SetInteger("a.b.c", 1);
    dict.SetInteger("a.x", 2);
    dict.SetInteger("k.l", 3);
    std::unique_ptr<Value> out;
    int32_t i = 0;
    EXPECT_FALSE(dict.Remove("a.b.missing", &out));
    EXPECT_TRUE(dict.Remove("a.x", &out) && out->GetAsInteger(&i) && i == 2);
    // RemovePath also drops the levels it empties; Remove doesn't.
    EXPECT_TRUE(dict.RemovePath("a.b.c", nullptr) && !dict.HasKey("a"));
    EXPECT_TRUE(dict.Remove("k.l", nullptr) && dict.HasKey("k"));
    EXPECT_TRUE(dict.RemoveWithoutPathExpansion("k", nullptr) && dict.empty());

    ListValue list;
    list.AppendString("s");
    list.Append(new DictionaryValue());
    list.Append(std::unique_ptr<Value>());  // ignored
    std::string s;
    DictionaryValue* d = nullptr;
    EXPECT_FALSE(list.GetSize() != 2 || list.GetString(1, &s) || list.GetString(2, &s) ||
                 list.Remove(2, &out));
    // Later elements move up.
    EXPECT_TRUE(list.Remove(0, &out) && out->GetAsString(&s) && s == "s" &&
                list.GetDictionary(0, &d));
}

}  // namespace
