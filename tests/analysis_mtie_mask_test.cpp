// The gPTP one-hop MTIE mask: a flat 160 ns, a point exactly on it conforms, the first point
// above it is named in the error.

#include <gtest/gtest.h>

#include <cmath>
#include <optional>
#include <string>
#include <vector>

#include "VDMTIEMask.h"

namespace {

TEST(AnalysisMTIEMask, OneHopMaskIsAFlat160Nanoseconds) {
  const VDMTIEMask mask = VDMTIEMask::gPTP1Hop();
  for (double tau : {0.0, 0.125, 1.0, 1e6}) {
    EXPECT_EQ(mask.limitAtTau(tau), 160.0) << tau;
  }
}

TEST(AnalysisMTIEMask, ConformsUpToTheLimitAndNamesTheFirstPointBeyond) {
  const VDMTIEMask mask = VDMTIEMask::gPTP1Hop();
  std::optional<std::string> error;
  EXPECT_TRUE(mask.mtieConformsToMask({}, &error));
  EXPECT_TRUE(mask.mtieConformsToMask({{1, 0.125, 12, 99}, {2, 0.25, 160, 98}}, &error));
  EXPECT_FALSE(error.has_value());

  const std::vector<VDStatisticPoint> beyond = {
      {1, 0.125, 12, 99}, {7, 0.875, 160.5, 93}, {8, 1, 161, 92}};
  EXPECT_FALSE(mask.mtieConformsToMask(beyond, nullptr));
  EXPECT_FALSE(mask.mtieConformsToMask(beyond, &error));
  EXPECT_EQ(error, "MTIE exceeds the mask at window size 7 (tau 0.875 s): 160.5 ns > 160 ns");

  EXPECT_FALSE(mask.mtieConformsToMask({{3, 3, std::nan(""), 1}}, nullptr));
}

}  // namespace
