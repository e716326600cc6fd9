#include "app/terminal/progress.h"
#include "study/support/readable.h"

#include <cstdio>
#include <string>

#include <gmock/gmock.h>

namespace insolate::app {

using study::durationText;
namespace {

/// What a progress of the style writes for 1,000 things in pieces of 8.
std::string written(TerminalProgress::Style style) {
    std::FILE* file = std::tmpfile();
    TerminalProgress progress(file, style);
    progress.note("begin");
    progress.warn("odd");
    progress.begin(1000, "things");
    for (std::size_t done = 0; done < 1000; done += 8) {
        progress.advance(8);
    }
    progress.end();
    std::rewind(file);
    std::string text(4096, '\0');
    text.resize(std::fread(text.data(), 1, text.size(), file));
    std::fclose(file);
    return text;
}

TEST(Progress, SaysShareRateAndTimeLeft) {
    EXPECT_EQ(progressText(300, 1200, 3.0, "sensors"),
              " 25 %  300 of 1,200 sensors  100/s  9.0 s left");
    EXPECT_EQ(progressText(1234567, 1234567, 1.0, "x"),
              "100 %  1,234,567 of 1,234,567 x  1,234,567/s");
    EXPECT_EQ(durationText(0.25), "250 ms");
    EXPECT_EQ(durationText(59.99), "1 min 00 s");
    EXPECT_EQ(durationText(3720.0), "1 h 02 min");
}

TEST(Progress, IsPlainOrSilentButForWarnings) {
    EXPECT_EQ(written(TerminalProgress::Style::quiet), "insolate: warning: odd\n");
    EXPECT_THAT(written(TerminalProgress::Style::plain),
                testing::MatchesRegex("insolate: begin\ninsolate: warning: odd\n"
                                      "insolate: 100 %  1,000 of 1,000 things .*"));
}

} // namespace
} // namespace insolate::app
