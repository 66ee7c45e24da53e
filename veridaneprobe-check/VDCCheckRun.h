#pragma once

#include "VDCOptions.h"

// A VDCCheckRun is one run of veridaneprobe-check: it reads the recording, reports each stream's
// gaps, analyses every continuous segment through the time error processor (or, with --gaps skip,
// the stream as one with every statistic pooled over the segments) and, where masks are
// selected, judges each segment. Its result is the exit status.
class VDCCheckRun {
 public:
  explicit VDCCheckRun(const VDCOptions& options) : _options(options) {}

  int run() const;

 private:
  const VDCOptions& _options;
};
