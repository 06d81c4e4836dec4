#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <string>

#include "failing_malloc.h"
#include "ksdstring.h"
#include "support/child.h"
#include "utlheap.h"

namespace {
TEST(KsDString, Growth) {
    KsDString text;
    KsDStringInit(&text);
    EXPECT_EQ(text.string, text.staticSpace);
    EXPECT_EQ(text.spaceAvl, 200);
    KsDStringAppend(&text, std::string(199, 'a').c_str(), -1);
    EXPECT_EQ(text.string, text.staticSpace);
    EXPECT_EQ(KsDStringAppend(&text, "bc", 1), text.string);
    EXPECT_NE(text.string, text.staticSpace);
    EXPECT_EQ(text.spaceAvl, 400);
    EXPECT_EQ(text.string, std::string(199, 'a') + "b");
    KsDStringSetLength(&text, 400);
    EXPECT_EQ(text.spaceAvl, 401);
    KsDStringSetLength(&text, -5);
    EXPECT_STREQ(text.string, "");
    EXPECT_EQ(text.spaceAvl, 401);
    KsDStringFree(&text);
    EXPECT_EQ(text.string, text.staticSpace);
    EXPECT_EQ(text.spaceAvl, 200);
    KsDStringSetLength(&text, 500);
    EXPECT_EQ(text.spaceAvl, 501);
    KsDStringFree(&text);
    KsDStringFree(&text);
}

TEST(KsDString, WithoutMemoryTheTextStays) {
    const ChildResult child = runInChild([] {
        KsDString text;
        KsDStringInit(&text);
        KsDStringAppend(&text, "kept", -1);
        for (int i = 0; i < 2; ++i) {
            const std::string piece(300, 'x');
            mallocControl = {.failAt = 1, .failFromThere = true};
            EXPECT_EQ(KsDStringAppend(&text, piece.c_str(), -1), nullptr);
            KsDStringSetLength(&text, 1000);
            mallocControl = {};
            EXPECT_STREQ(text.string, "kept");
            KsDStringSetLength(&text, 210); // once more, from a heap block
            KsDStringSetLength(&text, 4);
        }
    });
    EXPECT_EQ(child.err.find("malloc failure allocating 608 bytes: ksdstring\n"), 0U) << child.err;
    EXPECT_EQ(child.exitStatus, 0);
}

TEST(KsDString, RandomUseAgainstStdString) {
    std::mt19937 random(11);
    KsDString text;
    KsDStringInit(&text);
    std::string model;
    for (int i = 0; i < 100000; ++i) {
        const unsigned choice = random() % 8;
        const size_t place = random() % (model.size() + 2);
        if (choice == 0) { // cut, seldom extend
            KsDStringSetLength(&text, static_cast<long>(place) - 1);
            model.resize(place == 0 ? 0 : place - 1);
        } else if (choice == 1 && model.size() < 5000 && place <= model.size()) { // a part of itself
            KsDStringAppend(&text, text.string + place, -1);
            model += model.substr(place);
        } else if (random() % 1500 == 0) {
            KsDStringFree(&text);
            model.clear();
        } else {
            const std::string piece(random() % 40, static_cast<char>('a' + random() % 26));
            KsDStringAppend(&text, piece.c_str(), random() % 2 == 0 ? -1 : static_cast<long>(piece.size()));
            model += piece;
        }
        ASSERT_EQ(text.length, static_cast<long>(model.size()));
        ASSERT_EQ(memcmp(text.string, model.c_str(), model.size() + 1), 0);
        ASSERT_LT(text.length, text.spaceAvl);
    }
    KsDStringFree(&text);
    UtlHeapCheck();
    EXPECT_EQ(UtlHeapSizeKB(), 0U);
}
} // namespace
