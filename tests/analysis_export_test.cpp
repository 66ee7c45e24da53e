// CSV exports of the time error sequence and of the statistics (the deviations with their noise
// type, EDF and confidence bounds): exact text (doubles in their shortest form that reads back
// unchanged), window filtering, and failures reported as false.

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <tuple>
#include <vector>

#include "TestSupport.h"
#include "VDAllanDeviationAnalysis.h"
#include "VDMaximumTimeIntervalErrorAnalysis.h"
#include "VDModifiedAllanDeviationAnalysis.h"
#include "VDRootMeanSquaredTimeIntervalErrorAnalysis.h"
#include "VDTimeDeviationAnalysis.h"
#include "VDTimeErrorSequence.h"

namespace {

constexpr int64_t kMax = std::numeric_limits<int64_t>::max();

using TestSupport::timeErrorValues;

TEST(AnalysisExport, SequenceWritesIntegerNanosecondsUnderNamedColumns) {
  TestSupport::TempDir dir;
  const VDTimeErrorSequence sequence({{0, -17},
                                      {18446744073709551615ull, 9223372036854775807},
                                      {9223372036854775808ull, -9223372036854775807 - 1},
                                      {125000000, 0}});
  ASSERT_TRUE(sequence.exportTimeErrorsToDirectoryURL(dir.path(), "n_time_error.csv"));
  EXPECT_EQ(TestSupport::readFile(dir / "n_time_error.csv"),
            "time,time_error\n"
            "0,-17\n"
            "18446744073709551615,9223372036854775807\n"
            "9223372036854775808,-9223372036854775808\n"
            "125000000,0\n");

  const VDTimeErrorSequence empty({});
  ASSERT_TRUE(empty.exportTimeErrorsToDirectoryURL(dir.path(), "empty.csv"));
  EXPECT_EQ(TestSupport::readFile(dir / "empty.csv"), "time,time_error\n");
}

TEST(AnalysisExport, StatisticsWriteWindowTauValueAndTerms) {
  TestSupport::TempDir dir;
  // 0, 0, 4, 8 ns a quarter second apart. ADEV at m=1: second differences 4 and 0, so
  // sigma^2 = 16e-18 / (2 * 0.25^2 * 2) and sigma = 8e-9 exactly.
  const std::vector<VDTimeErrorValue> quarter = timeErrorValues({0, 0, 4, 8}, 250000000);
  VDAllanDeviationAnalysis adev(quarter);
  adev.performAnalysisFromStartWindowSize(1, kMax, 1);
  ASSERT_TRUE(adev.exportAnalysisToDirectoryURL(dir.path(), "a.csv", 1, kMax, 1));
  EXPECT_EQ(TestSupport::readFile(dir / "a.csv"),
            "window,tau,adev,terms,alpha,edf,adev_min,adev_max\n"
            "1,0.25,8e-09,2,-1,1.9974987087071094,5.893935625542523e-09,1.9275079677377874e-08\n");

  // 0, 3, 4 ns one second apart: TIE at lag 1 is 3 and 1, at lag 2 it is 4.
  const std::vector<VDTimeErrorValue> second = timeErrorValues({0, 3, 4}, 1000000000);
  VDRootMeanSquaredTimeIntervalErrorAnalysis rms(second);
  rms.performAnalysisFromStartWindowSize(1, kMax, 1);
  ASSERT_TRUE(rms.exportAnalysisToDirectoryURL(dir.path(), "r.csv", 1, kMax, 1));
  EXPECT_EQ(TestSupport::readFile(dir / "r.csv"),
            "window,tau,rmstie,terms\n1,1,2.23606797749979,2\n2,2,4,1\n");
  VDMaximumTimeIntervalErrorAnalysis mtie(second);
  mtie.performAnalysisFromStartWindowSize(1, kMax, 1);
  ASSERT_TRUE(mtie.exportAnalysisToDirectoryURL(dir.path(), "m.csv", 1, kMax, 1));
  EXPECT_EQ(TestSupport::readFile(dir / "m.csv"), "window,tau,mtie,terms\n1,1,3,2\n2,2,4,1\n");

  // MDEV and TDEV at m=1 of three samples: one term, the second difference 4 - 6 + 0 = -2.
  const std::vector<VDTimeErrorValue> three = timeErrorValues({0, 3, 4}, 1000000000);
  VDModifiedAllanDeviationAnalysis mdev(three);
  mdev.performAnalysisFromStartWindowSize(1, kMax, 1);
  ASSERT_TRUE(mdev.exportAnalysisToDirectoryURL(dir.path(), "d.csv", 1, kMax, 1));
  EXPECT_EQ(TestSupport::readFile(dir / "d.csv"),
            "window,tau,madev,terms,alpha,edf,madev_min,madev_max\n"
            "1,1,1.4142135623730953e-09,1,0,1,1.002892741893858e-09,7.0719455975735554e-09\n");
  VDTimeDeviationAnalysis tdev(three);
  tdev.performAnalysisFromStartWindowSize(1, kMax, 1);
  ASSERT_TRUE(tdev.exportAnalysisToDirectoryURL(dir.path(), "t.csv", 1, kMax, 1));
  // sqrt(4 / 6) ns: TDEV is tau / sqrt(3) times MDEV.
  EXPECT_EQ(TestSupport::readFile(dir / "t.csv"),
            "window,tau,tdev,terms,alpha,edf,tdev_min,tdev_max\n"
            "1,1,0.816496580927726,1,0,1,0.5790203945007407,4.08298969445348\n");
}

TEST(AnalysisExport, OnlyTheGivenWindowRangeIsWritten) {
  TestSupport::TempDir dir;
  VDMaximumTimeIntervalErrorAnalysis mtie(
      timeErrorValues({0, 1, 3, 6, 10, 15, 21, 28, 36, 45}, 1000000000));
  mtie.performAnalysisFromStartWindowSize(1, kMax, 1);
  ASSERT_TRUE(mtie.exportAnalysisToDirectoryURL(dir.path(), "m.csv", 2, 8, 3));
  EXPECT_EQ(TestSupport::readFile(dir / "m.csv"),
            "window,tau,mtie,terms\n2,2,17,8\n5,5,35,5\n8,8,44,2\n");
  // Windows never computed, a step below 1 and a range past the data give just the header.
  for (const auto& [start, end, step] : {std::tuple<int64_t, int64_t, int64_t>{1, kMax, 0},
                                         {1, kMax, -1},
                                         {10, kMax, 1},
                                         {kMax, kMax, kMax}}) {
    ASSERT_TRUE(mtie.exportAnalysisToDirectoryURL(dir.path(), "h.csv", start, end, step));
    EXPECT_EQ(TestSupport::readFile(dir / "h.csv"), "window,tau,mtie,terms\n");
  }
  VDAllanDeviationAnalysis notRun(timeErrorValues({1, 2, 3, 4, 5}, 1));
  ASSERT_TRUE(notRun.exportAnalysisToDirectoryURL(dir.path(), "n.csv", 1, kMax, 1));
  EXPECT_EQ(TestSupport::readFile(dir / "n.csv"),
            "window,tau,adev,terms,alpha,edf,adev_min,adev_max\n");
}

TEST(AnalysisExport, AnUnwritableTargetGivesFalse) {
  TestSupport::TempDir dir;
  TestSupport::writeFile(dir / "file", "x");
  const VDTimeErrorSequence sequence({{1, 2}});
  EXPECT_FALSE(sequence.exportTimeErrorsToDirectoryURL(dir / "missing", "t.csv"));
  EXPECT_FALSE(sequence.exportTimeErrorsToDirectoryURL(dir / "file", "t.csv"));
  VDAllanDeviationAnalysis adev(timeErrorValues({1, 2, 3, 4, 5}, 1));
  adev.performAnalysisFromStartWindowSize(1, kMax, 1);
  EXPECT_FALSE(adev.exportAnalysisToDirectoryURL(dir / "missing", "a.csv", 1, kMax, 1));
  EXPECT_FALSE(adev.exportAnalysisToDirectoryURL(dir.path(), "", 1, kMax, 1));
}

}  // namespace
