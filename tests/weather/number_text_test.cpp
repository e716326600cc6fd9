#include <insolate/weather/number_text.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <random>
#include <string>

namespace {

using insolate::leadingDecimal;
using insolate::leadingInteger;
using insolate::toField;

TEST(NumberText, IntegersAreTheLowBitsOfWhatTheCLibraryReads) {
    for (const char* text :
         {"42", " \t\v-17x", "+8", "3.9", "", "abc", "- 5", "2147483647", "2147483648",
          "4294967301", "-4294967301", "9223372036854775807", "9223372036854775808",
          "99999999999999999999999", "-9223372036854775808", "-99999999999999999999999"}) {
        EXPECT_EQ(leadingInteger(text), static_cast<std::int32_t>(std::strtoll(text, nullptr, 10)))
            << text;
    }
    EXPECT_EQ(leadingInteger("4294967301"), 5);
    EXPECT_EQ(leadingInteger("99999999999999999999999"), -1);
}

TEST(NumberText, DecimalsAgreeWithTheCLibrary) {
    const std::string zeros(400, '0');
    const std::string large = "1" + zeros;
    const std::string small = "0." + zeros + "1";
    const std::string one = small + "e401";
    for (const char* text :
         {"-12.2", " 7", "+.5", "5.", ".", "", "-0.0", "1.2.3", "1,5", "1e3", "1e", "2E-2x", "e5",
          // beyond the doubles
          "1e999", "-1e999", "1e-999", "0e999999999999", large.c_str(), small.c_str(),
          one.c_str()}) {
        const double expected = std::strtod(text, nullptr);
        EXPECT_EQ(leadingDecimal(text), expected) << text;
        EXPECT_EQ(std::signbit(leadingDecimal(text)), std::signbit(expected)) << text;
    }
    // Words and hexadecimal numbers are none; a sign without a number is no negative zero.
    for (const char* text : {"nan", "-inf", "0x1A", "-", "-x1"}) {
        EXPECT_EQ(leadingDecimal(text), 0.0) << text;
        EXPECT_FALSE(std::signbit(leadingDecimal(text))) << text;
    }
    // The fast path must give the very double.
    std::mt19937 random(20070401);
    std::uniform_real_distribution<double> mantissa(-1000.0, 1000.0);
    for (int round = 0; round < 200000; ++round) {
        char text[64];
        const int digits = static_cast<int>(random() % 24);
        std::snprintf(text, sizeof(text), round % 3 == 0 ? "%.*e" : "%.*f", digits,
                      mantissa(random) * std::pow(10.0, static_cast<int>(random() % 7) - 3));
        ASSERT_EQ(leadingDecimal(text), std::strtod(text, nullptr)) << text;
    }
}

TEST(NumberText, FieldsKeepTheLowBitsOfTheTruncatedValue) {
    for (const double value : {213.7, -0.5, -35.9, 40000.0, -2147483648.0, 2147483647.5, 99999.0}) {
        EXPECT_EQ(toField(value), static_cast<std::int16_t>(static_cast<std::int64_t>(value)));
    }
    EXPECT_EQ(toField(99999), 99999 - 2 * 65536);
    for (const double outside : {2147483648.0, -2147483649.0, 1e30, -1e300, std::nan(""),
                                 std::numeric_limits<double>::infinity()}) {
        EXPECT_EQ(toField(outside), 0);
        EXPECT_EQ(toField(static_cast<float>(outside)), 0);
    }
}

} // namespace
