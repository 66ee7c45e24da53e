#include "VDPCommandTable.h"

#include <iterator>

#include "VDPAnalyseAudio.h"
#include "VDPAnalyseDualCheck.h"
#include "VDPAnalyseMarten.h"
#include "VDPAnalyseOsprey.h"
#include "VDPAnalyseTimeError.h"

namespace {

template <typename Analyser>
std::unique_ptr<VDPAnalyser> make(const std::vector<std::string>& arguments) {
  return Analyser::initWithArguments(arguments);
}

// "drift" is an alias of "audio". The dual-link analyser deliberately has no row.
const VDPCommand kCommands[] = {
    {"drift", make<VDPAnalyseAudio>},          {"audio", make<VDPAnalyseAudio>},
    {"time-error", make<VDPAnalyseTimeError>}, {"dual-check", make<VDPAnalyseDualCheck>},
    {"marten", make<VDPAnalyseMarten>},        {"osprey", make<VDPAnalyseOsprey>},
};

}  // namespace

const VDPCommand* VDPCommandTable::commandForWord(const std::string& word) {
  for (const VDPCommand& command : kCommands) {
    if (word == command.word) {
      return &command;
    }
  }
  return nullptr;
}
