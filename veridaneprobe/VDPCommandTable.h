#pragma once

#include <string>

#include "VDPAnalyser.h"

// One row of the command table: a command word and the initialiser of its analyser class.
struct VDPCommand {
  const char* word;
  VDPAnalyserInitialiser initWithArguments;
};

// The VDPCommandTable maps command words to analyser classes, searched in table order with exact,
// case-sensitive equality.
class VDPCommandTable {
 public:
  // The first row whose word equals word, or nullptr for an unknown command.
  static const VDPCommand* commandForWord(const std::string& word);
};
