#include <gtest/gtest.h>

#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "base/json/json_reader.h"
#include "base/values.h"

namespace {

using base::internal::CountPoolChunks;

constexpr int kEntries = 3000;
// Room for the chunk still handing out and the one whose last frees are
// not yet counted.
constexpr std::size_t kSlack = 2;
// What a thread that ends leaves held.
#if defined(_WIN32)
constexpr std::size_t kLeftByEndedThread = 2;
#else
constexpr std::size_t kLeftByEndedThread = 0;
#endif

// A few dozen chunks of nodes. Every entry names its index, so a node whose
// memory was handed out again shows.
std::unique_ptr<base::Value> Parse() {
    static const std::string text = [] {
        std::string t = "[";
        for (int i = 0; i < kEntries; ++i) {
            const std::string n = std::to_string(i);
            t += (i ? ",{\"index\":" : "{\"index\":") + n + ",\"name\":\"n" + n + "\",\"list\":[" +
                 n + ",true]}";
        }
        return t + "]";
    }();
    return base::JSONReader::Read(text.data(), text.size());
}

bool Intact(const base::Value& tree) {
    const base::ListValue* list = nullptr;
    if (!tree.GetAsList(&list) || list->GetSize() != kEntries) {
        return false;
    }
    for (int i = 0; i < kEntries; i += 7) {
        const base::DictionaryValue* entry = nullptr;
        int32_t index = -1;
        std::string name;
        if (!list->GetDictionary(i, &entry) || !entry->GetInteger("index", &index) ||
            !entry->GetString("name", &name) || index != i || name != "n" + std::to_string(i)) {
            return false;
        }
    }
    return true;
}

TEST(NodePoolTest, FreedTreesGiveTheirChunksBack) {
    const std::size_t before = CountPoolChunks();
    auto tree = Parse();
    if (CountPoolChunks() == before) {
        GTEST_SKIP() << "this build takes nodes from the general heap";
    }
    EXPECT_GT(CountPoolChunks(), before + 10);
    EXPECT_TRUE(Intact(*tree));
    tree.reset();
    EXPECT_LE(CountPoolChunks(), before + kSlack);
    const std::size_t at_thread = CountPoolChunks();
    std::thread([] { Parse().reset(); }).join();
    EXPECT_LE(CountPoolChunks(), at_thread + kLeftByEndedThread);
}

TEST(NodePoolTest, TreesMadeOnOneThreadAndFreedOnAnotherStayIntactAndGoBack) {
    const std::size_t before = CountPoolChunks();
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
    for (int freed = 0; freed < 6;) {
        std::unique_ptr<base::Value> tree;
        {
            std::lock_guard<std::mutex> lock(mutex);
            if (!made.empty()) {
                tree = std::move(made.front());
                made.pop_front();
            }
        }
        if (tree) {
            // A tree of this thread in between, so that chunks of both are freed mixed.
            auto local = Parse();
            EXPECT_TRUE(Intact(*tree));
            tree.reset();
            EXPECT_TRUE(Intact(*local));
            ++freed;
        }
    }
    maker.join();
    for (auto& tree : made) {
        EXPECT_TRUE(Intact(*tree));
    }
    made.clear();
    Parse().reset();
    EXPECT_LE(CountPoolChunks(), before + kSlack + kLeftByEndedThread);
}

}  // namespace
