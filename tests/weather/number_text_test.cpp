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

TEST(NumberText, LeadingIntegers) {
    struct Case {
        const char* text;
        std::int32_t value;
    };
    for (const Case& one :
         {Case{"42", 42}, Case{" \t\v-17x", -17}, Case{"+8", 8}, Case{"3.9", 3}, Case{"", 0},
          Case{"abc", 0}, Case{"\"12\"", 0}, Case{"- 5", 0}, Case{"--5", 0},
          Case{"2147483647", 2147483647},
          // Beyond 32 bits the low ones remain; beyond 64 the number is held at their limit.
          Case{"2147483648", INT32_MIN}, Case{"4294967301", 5}, Case{"-4294967301", -5},
          Case{"9223372036854775807", -1}, Case{"9223372036854775808", -1},
          Case{"99999999999999999999999", -1}, Case{"-9223372036854775808", 0},
          Case{"-99999999999999999999999", 0}}) {
        EXPECT_EQ(leadingInteger(one.text), one.value) << one.text;
    }
}

TEST(NumberText, LeadingDecimals) {
    const double infinite = std::numeric_limits<double>::infinity();
    struct Case {
        const char* text;
        double value;
    };
    for (const Case& one :
         {Case{"-12.2", -12.2},
          Case{" 7", 7.0},
          Case{"+.5", 0.5},
          Case{"5.", 5.0},
          Case{".", 0.0},
          Case{"", 0.0},
          Case{"-", 0.0},
          Case{"1.2.3", 1.2},
          Case{"1,5", 1.0},
          Case{"1e3", 1000.0},
          Case{"1e", 1.0},
          Case{"2E-2x", 0.02},
          Case{"e5", 0.0},
          Case{"nan", 0.0},
          Case{"-inf", 0.0},
          Case{"0x1A", 0.0},
          Case{"123456789012345678901234567890", 123456789012345678901234567890.0},
          Case{"0.1234567890123456789", 0.1234567890123456789},
          Case{"1e999", infinite},
          Case{"-1e999", -infinite},
          Case{"1e-999", 0.0},
          Case{"0e999999999999", 0.0}}) {
        EXPECT_EQ(leadingDecimal(one.text), one.value) << one.text;
    }
    // A sign without a number is no negative zero.
    EXPECT_FALSE(std::signbit(leadingDecimal("-")));
    EXPECT_FALSE(std::signbit(leadingDecimal("-x1")));
    EXPECT_TRUE(std::signbit(leadingDecimal("-0.0")));
    const std::string zeros(400, '0');
    EXPECT_EQ(leadingDecimal("1" + zeros), infinite);
    EXPECT_EQ(leadingDecimal("0." + zeros + "1"), 0.0);
    EXPECT_EQ(leadingDecimal("0." + zeros + "1e401"), 1.0);
}

// The fast path must give the very double that the C library gives.
TEST(NumberText, DecimalsAgreeWithTheCLibrary) {
    std::mt19937 random(20070401);
    std::uniform_real_distribution<double> mantissa(-1000.0, 1000.0);
    for (int round = 0; round < 200000; ++round) {
        char text[64];
        const int digits = static_cast<int>(random() % 18);
        std::snprintf(text, sizeof(text), round % 3 == 0 ? "%.*e" : "%.*f", digits,
                      mantissa(random) * std::pow(10.0, static_cast<int>(random() % 7) - 3));
        ASSERT_EQ(leadingDecimal(text), std::strtod(text, nullptr)) << text;
    }
}

TEST(NumberText, FieldsKeepTheLowBitsOfTheTruncatedValue) {
    EXPECT_EQ(toField(213.7), 213);
    EXPECT_EQ(toField(-0.5), 0);
    EXPECT_EQ(toField(-35.9), -35);
    EXPECT_EQ(toField(40000.0), 40000 - 65536);
    EXPECT_EQ(toField(-2147483648.0), 0);
    EXPECT_EQ(toField(2147483647.5), -1);
    EXPECT_EQ(toField(99999), 99999 - 2 * 65536);
    for (const double outside : {2147483648.0, -2147483649.0, 1e30, -1e300, std::nan(""),
                                 std::numeric_limits<double>::infinity()}) {
        EXPECT_EQ(toField(outside), 0);
        EXPECT_EQ(toField(static_cast<float>(outside)), 0);
    }
}

} // namespace
