#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "VDMask.h"

// A VDMaskTable holds mask definitions read from text, one mask per line (the format is
// described at the top of masks.txt): the table built into the library, and the files users
// add. Every limit is checked as it is read: numbers, known metrics, and curve segments that
// meet with no gap, so no tau between a mask's first and last breakpoint lies outside it.
class VDMaskTable {
 public:
  // The definitions built into the library (masks.txt).
  static const VDMaskTable& builtIn();

  // Adds the masks of text; sourceName names it in errors. On the first bad line nothing is
  // added, the result is false and error says which line and why.
  bool addDefinitions(std::string_view text, const std::string& sourceName, std::string& error);

  const std::vector<VDMask>& masks() const { return _masks; }
  // The masks of one id, in their order; none for an unknown id.
  std::vector<const VDMask*> masksWithId(std::string_view id) const;
  // The mask of one id and metric, or nullptr.
  const VDMask* find(std::string_view id, std::string_view metric) const;
  // The ids in order of first appearance.
  std::vector<std::string> ids() const;

  // Whether a metric's limit is a curve over tau (MTIE, TDEV) rather than one number; false for
  // an unknown metric too.
  static bool isCurveMetric(std::string_view metric);
  static bool isKnownMetric(std::string_view metric);

 private:
  std::vector<VDMask> _masks;
};
