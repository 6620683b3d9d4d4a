#include <gtest/gtest.h>

#include "Models/DiskCapacityBreakdown.hpp"

namespace unbulk {
namespace {

constexpr std::int64_t GB = 1'000'000'000;

TEST(DiskCapacityBreakdownTest, MeasuredSharesStandAndMissingOnesAreEstimatedToFit) {
    const struct {
        const char* name;
        DiskCapacityBreakdown made;
        double used, sweepable, system, apps, other;
    } rows[] = {
        {"measured", DiskCapacityBreakdown::make(500 * GB, 100 * GB, 7 * GB, 60 * GB, 90 * GB, true, std::nullopt),
         400e9, 7e9, 60e9, 90e9, 243e9},
        {"estimated on a large disk", DiskCapacityBreakdown::make(1000 * GB, 0, 0, 0, 0, false, std::nullopt),
         1000e9, 5e9, 150e9, 180e9, 665e9},
        // 1.6 + 15 + 18 GB do not fit in 20 GB: all three shrink alike, nothing is left over.
        {"estimated on a small disk", DiskCapacityBreakdown::make(100 * GB, 80 * GB, 0, 0, 0, false, std::nullopt),
         20e9, 1.6e9 * 20 / 34.6, 15e9 * 20 / 34.6, 18e9 * 20 / 34.6, 0},
        // A known sweepable 0 outranks the purgeable figure; apps measured as none are none.
        {"known zeros", DiskCapacityBreakdown::make(100 * GB, 50 * GB, 9 * GB, 10 * GB, 0, true, 0), 50e9, 0, 10e9,
         0, 40e9},
        {"free above the total", DiskCapacityBreakdown::make(100 * GB, 200 * GB, 9 * GB, 10 * GB, 5, true, 3), 0, 0,
         0, 0, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const DiskCapacityBreakdown& b = row.made;
        EXPECT_DOUBLE_EQ(b.usedBytes, row.used);
        EXPECT_DOUBLE_EQ(b.freeBytes, b.totalBytes - row.used);
        EXPECT_NEAR(b.sweepableBytes, row.sweepable, 1);
        EXPECT_NEAR(b.systemBytes, row.system, 1);
        EXPECT_NEAR(b.appsBytes, row.apps, 1);
        EXPECT_NEAR(b.otherBytes, row.other, 1);
        EXPECT_DOUBLE_EQ(b.systemFraction(), b.systemBytes / b.totalBytes);
        EXPECT_DOUBLE_EQ(b.freeFraction(), b.freeBytes / b.totalBytes);
    }
}

TEST(DiskCapacityBreakdownTest, NoTotalGivesZerosAndNoDivision) {
    for (const std::int64_t total : {std::int64_t{0}, std::int64_t{-5}}) {
        const DiskCapacityBreakdown b = DiskCapacityBreakdown::make(total, 10, 10, 10, 10, true, 10);
        EXPECT_EQ(b, DiskCapacityBreakdown{});
        EXPECT_EQ(std::vector<double>({b.systemFraction(), b.appsFraction(), b.sweepableFraction(), b.otherFraction(),
                                       b.freeFraction()}),
                  std::vector<double>(5, 0.0));
    }
}

} // namespace
} // namespace unbulk
