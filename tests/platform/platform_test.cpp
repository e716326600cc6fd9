#include "../support/debug_recorder.h"

#include <insolate/platform/file_name.h>
#include <insolate/platform/large_block.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <new>
#include <string>

namespace {

TEST(DebugOutput, GoesToTheInstalledSinkOnly) {
    using insolate::test::DebugRecorder;
    {
        const DebugRecorder recorder;
        insolate::debugOutput(L"one");
    }
    insolate::debugOutput(L"two");
    EXPECT_EQ(DebugRecorder::texts(), (std::vector<std::wstring>{L"one"}));
}

TEST(FileName, IsEncodedAsUtf8AndCutAt260Characters) {
    EXPECT_EQ(insolate::narrowFileName(L"chicago.epw"), "chicago.epw");
    EXPECT_EQ(insolate::narrowFileName(L"\u00fc\u6771\U0001F31E"),
              "\xC3\xBC\xE6\x9D\xB1\xF0\x9F\x8C\x9E");
    EXPECT_EQ(insolate::narrowFileName(std::wstring(300, L'a')).size(), 260U);
}

TEST(LargeBlock, RefusesSizesThatWouldWrapWhenRoundedUp) {
    for (const std::size_t below : {0U, 63U, 64U, 2U << 20U, 4U << 20U}) {
        EXPECT_THROW(insolate::LargeBlock(SIZE_MAX - below), std::bad_alloc) << below;
    }
}

} // namespace
