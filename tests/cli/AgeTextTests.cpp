#include <chrono>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tui/AgeText.hpp"

namespace {

TEST(AgeTextTest, TheLargestUnitThatFitsRoundedDown) {
    using namespace std::chrono;
    const unbulk::Date now = system_clock::now();
    const std::vector<std::pair<system_clock::duration, std::string>> cases{
        {seconds(59), "just now"},   {seconds(61), "1 minute"},     {minutes(59), "59 minutes"},
        {hours(2), "2 hours"},       {hours(24), "1 day"},          {hours(24 * 29), "29 days"},
        {hours(24 * 45), "1 month"}, {hours(24 * 150), "5 months"}, {hours(24 * 364), "12 months"},
        {hours(24 * 400), "1 year"}, {hours(24 * 800), "2 years"},  {-hours(5), "just now"},
    };
    for (const auto& [ago, text] : cases)
        EXPECT_EQ(unbulk::cli::ageText(now - ago, now), text);
}

} // namespace
