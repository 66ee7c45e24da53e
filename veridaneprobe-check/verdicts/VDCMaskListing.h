#pragma once

#include <string>

#include "VDMaskTable.h"

// VDCMaskListing prints a mask table for people: each id with its recommendation, edition and
// condition, then one line per metric with its filter, its limit as written in the definitions
// (ns), and where it comes from.
struct VDCMaskListing {
  static std::string text(const VDMaskTable& table);
};
