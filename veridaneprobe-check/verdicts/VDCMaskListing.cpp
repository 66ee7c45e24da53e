#include "VDCMaskListing.h"

std::string VDCMaskListing::text(const VDMaskTable& table) {
  std::string text;
  for (const std::string& id : table.ids()) {
    const std::vector<const VDMask*> masks = table.masksWithId(id);
    const VDMask& first = *masks.front();
    text += id + ": " + first.standard + " (" + first.edition + "), " + first.condition + "\n";
    for (const VDMask* mask : masks) {
      text += "  " + mask->metric + (mask->filter == "none" ? "" : " (" + mask->filter + ")") +
              ": " + mask->limitText() + " ns [" + mask->table + "; " + mask->source + "]\n";
    }
  }
  return text;
}
