#include <gtest/gtest.h>

#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "base/json/json_reader.h"
#include "base/values.h"

namespace {

using base::internal::CountPoolChunks;

// Enough nodes to fill a few dozen chunks; every entry names its index so
// that a node whose memory was handed out again shows.
std::string TreeText(int entries) {
    std::string text = "[";
    for (int i = 0; i < entries; ++i) {
        text += (i ? ",{\"index\":" : "{\"index\":") + std::to_string(i) + ",\"name\":\"n" +
                std::to_string(i) + "\",\"list\":[" + std::to_string(i) + ",true]}";
    }
    return text + "]";
}

const std::string& Text() {
    static const std::string text = TreeText(3000);
    return text;
}

std::unique_ptr<base::Value> Parse() {
    return base::JSONReader::Read(Text().data(), Text().size());
}

void ExpectIntact(const base::Value& tree) {
    const base::ListValue* list = nullptr;
    ASSERT_TRUE(tree.GetAsList(&list));
    ASSERT_EQ(list->GetSize(), 3000u);
    for (std::size_t i = 0; i < list->GetSize(); i += 7) {
        const base::DictionaryValue* entry = nullptr;
        int32_t index = -1;
        std::string name;
        const base::ListValue* inner = nullptr;
        ASSERT_TRUE(list->GetDictionary(i, &entry));
        ASSERT_TRUE(entry->GetInteger("index", &index) && entry->GetString("name", &name) &&
                    entry->GetList("list", &inner));
        ASSERT_EQ(index, static_cast<int32_t>(i));
        ASSERT_EQ(name, "n" + std::to_string(i));
        ASSERT_TRUE(inner->GetInteger(0, &index));
        ASSERT_EQ(index, static_cast<int32_t>(i));
    }
}

// Room for the chunk still handing out and the one whose last frees are
// not yet counted.
constexpr std::size_t kSlack = 2;
// What a thread that ends leaves held.
#if defined(_WIN32)
constexpr std::size_t kLeftByEndedThread = 2;
#else
constexpr std::size_t kLeftByEndedThread = 0;
#endif

TEST(NodePoolTest, FreedTreesGiveTheirChunksBack) {
    const std::size_t before = CountPoolChunks();
    auto tree = Parse();
    if (CountPoolChunks() == before) {
        GTEST_SKIP() << "this build takes nodes from the general heap";
    }
    EXPECT_GT(CountPoolChunks(), before + 10);
    ExpectIntact(*tree);
    tree.reset();
    EXPECT_LE(CountPoolChunks(), before + kSlack);
}

TEST(NodePoolTest, TreesMadeOnOneThreadAndFreedOnAnotherStayIntactAndGoBack) {
    std::size_t before = CountPoolChunks();
    std::thread([] { Parse().reset(); }).join();
    EXPECT_LE(CountPoolChunks(), before + kLeftByEndedThread);
    before = CountPoolChunks();
    std::mutex mutex;
    std::deque<std::unique_ptr<base::Value>> made;
    // The maker ends while some of its trees are still alive here.
    std::thread maker([&] {
        for (int i = 0; i < 12; ++i) {
            auto tree = Parse();
            std::lock_guard<std::mutex> lock(mutex);
            made.push_back(std::move(tree));
        }
    });
    int freed = 0;
    while (freed < 6) {
        std::unique_ptr<base::Value> tree;
        {
            std::lock_guard<std::mutex> lock(mutex);
            if (!made.empty()) {
                tree = std::move(made.front());
                made.pop_front();
            }
        }
        if (tree) {
            ExpectIntact(*tree);
            // Trees of this thread in between, so that chunks of both are freed mixed.
            auto local = Parse();
            tree.reset();
            ExpectIntact(*local);
            ++freed;
        }
    }
    maker.join();
    for (auto& tree : made) {
        ExpectIntact(*tree);
    }
    made.clear();
    Parse().reset();
    EXPECT_LE(CountPoolChunks(), before + kSlack + kLeftByEndedThread);
}

}  // namespace
