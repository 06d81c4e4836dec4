#include <gtest/gtest.h>
#include <string>

#include "failing_malloc.h"
#include "ksdstring.h"
#include "utlheap.h"

namespace {
TEST(KsDString, Growth) {
    KsDString text;
    KsDStringInit(&text);
    EXPECT_EQ(text.spaceAvl, 200);
    KsDStringAppend(&text, std::string(199, 'a').c_str(), -1);
    EXPECT_EQ(text.string, text.staticSpace);
    EXPECT_EQ(KsDStringAppend(&text, "bc", 1), text.string);
    EXPECT_EQ(text.spaceAvl, 400);
    EXPECT_EQ(text.string, std::string(199, 'a') + "b");
    KsDStringSetLength(&text, 400);
    EXPECT_EQ(text.spaceAvl, 401);
    KsDStringSetLength(&text, -5);
    EXPECT_STREQ(text.string, "");
    for (int i = 0; i < 2; ++i) {
        KsDStringFree(&text);
        EXPECT_EQ(text.string, text.staticSpace);
        EXPECT_EQ(text.spaceAvl, 200);
    }
}

TEST(KsDString, WithoutMemoryTheTextStays) {
    KsDString text;
    KsDStringInit(&text);
    KsDStringAppend(&text, "kept", -1);
    testing::internal::CaptureStderr();
    for (int i = 0; i < 2; ++i) {
        mallocControl = {.failAt = 1, .failFromThere = true};
        EXPECT_EQ(KsDStringAppend(&text, std::string(300, 'x').c_str(), -1), nullptr);
        KsDStringSetLength(&text, 1000);
        mallocControl = {};
        EXPECT_STREQ(text.string, "kept");
        KsDStringSetLength(&text, 210); // once more, from a heap block
        KsDStringSetLength(&text, 4);
    }
    EXPECT_TRUE(testing::internal::GetCapturedStderr().starts_with("malloc failure allocating 608 bytes: ksdstring\n"));
}

TEST(KsDString, PiecesOfEveryLengthAndPartsOfItself) {
    KsDString text;
    KsDStringInit(&text);
    std::string model;
    for (size_t length = 0; length < 70; ++length) {
        std::string piece;
        for (size_t i = 0; i < length; ++i)
            piece += static_cast<char>('!' + (i * 7 + length) % 90);
        KsDStringAppend(&text, piece.c_str(), length % 2 == 0 ? -1 : static_cast<long>(length));
        KsDStringAppend(&text, text.string + model.size() / 2, -1);
        model += piece;
        model += model.substr((model.size() - length) / 2);
        ASSERT_EQ(text.string, model);
        ASSERT_EQ(text.length, static_cast<long>(model.size()));
        model.resize(model.size() * 2 / 3);
        KsDStringSetLength(&text, static_cast<long>(model.size()));
    }
    KsDStringFree(&text);
    EXPECT_EQ(UtlHeapSizeKB(), 0U);
}
} // namespace
