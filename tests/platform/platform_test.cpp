#include <insolate/platform/debug_output.h>
#include <insolate/platform/file_name.h>

#include <gtest/gtest.h>

#include <string>

namespace {

std::wstring received;

void record(const wchar_t* text) {
    received = text;
}

TEST(DebugOutput, GoesToTheInstalledSinkOnly) {
    received.clear();
    const insolate::DebugSink previous = insolate::setDebugSink(record);
    insolate::debugOutput(L"one");
    EXPECT_EQ(received, L"one");
    EXPECT_EQ(insolate::setDebugSink(previous), record);
    insolate::debugOutput(L"two");
    EXPECT_EQ(received, L"one");
}

TEST(FileName, IsEncodedAsUtf8AndCutAt260Characters) {
    EXPECT_EQ(insolate::narrowFileName(L"chicago.epw"), "chicago.epw");
    EXPECT_EQ(insolate::narrowFileName(L"\u00fc\u6771\U0001F31E"),
              "\xC3\xBC\xE6\x9D\xB1\xF0\x9F\x8C\x9E");
    EXPECT_EQ(insolate::narrowFileName(std::wstring(300, L'a')).size(), 260U);
}

} // namespace
