#pragma once

#include <string>

#include "VDMask.h"
#include "VDMaskVerdict.h"

// A VDCMaskCheck is one mask judged on one run: which mask and metric, and the verdict.
struct VDCMaskCheck {
  const VDMask* mask;
  VDMaskVerdict verdict;
};
