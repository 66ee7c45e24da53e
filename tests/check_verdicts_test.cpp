// The check program's verdicts: which samples count as settled (by time and by the servo's lock),
// how checks add up to the run's verdict and exit status, and the exact console lines,
// check.json and check.junit.xml of one run (tests/data/check/).

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "TestSupport.h"
#include "VDCCheckReport.h"
#include "VDCMaskChecks.h"
#include "VDCSettledWindow.h"
#include "VDCVerdictOptions.h"
#include "VDMaskTable.h"

namespace {

TEST(CheckVerdicts, SettledWindowByTimeAndByTheServosLock) {
  std::vector<double> times;
  for (int i = 0; i < 200; ++i) {
    times.push_back(1000 + i);  // 1 s apart
  }
  struct Case {
    const char* name;
    std::vector<int> states;  // runs of (state, count)
    size_t first, end;
    bool lostLock;
  };
  const Case cases[] = {
      {"unlocked, a step, locked", {0, 10, 1, 1, 2, 189}, 71, 200, false},
      {"starts locked", {2, 50, 3, 150}, 60, 200, false},
      {"loses the lock", {0, 5, 2, 100, 0, 3, 2, 92}, 65, 105, true},
      {"a step after locking is a loss too", {2, 100, 1, 1, 2, 99}, 60, 100, true},
      {"locks too late to settle", {0, 170, 2, 30}, 200, 200, false},
      {"never locks", {0, 100, 1, 100}, 0, 0, false},
  };
  for (const Case& c : cases) {
    std::vector<int> states;
    for (size_t i = 0; i < c.states.size(); i += 2) {
      states.insert(states.end(), c.states[i + 1], c.states[i]);
    }
    const VDCSettledWindow window = VDCSettledWindow::afterServoLock(times, states);
    EXPECT_EQ(window.first, c.first) << c.name;
    EXPECT_EQ(window.end, c.end) << c.name;
    EXPECT_EQ(window.lostLock, c.lostLock) << c.name;
  }
  EXPECT_EQ(VDCSettledWindow::afterSeconds(times, 300).first, 200u);
  EXPECT_EQ(VDCSettledWindow::afterSeconds(times, 12.5).first, 13u);
  EXPECT_EQ(VDCSettledWindow::afterSeconds(times, 0).first, 0u);
}

// A sinusoidal wander of 6 ns amplitude on a 25 ns offset, 2000 s at 16 Hz, judged against
// class C (max|TE|, cTE and dTE_L MTIE fail: 31 > 30, 24.6 > 10, 12 > 10), the PRTC-A TDEV
// (upper end unsure; evaluated from its 0.1 s to a twelfth of the settled 1700 s) and a user's
// mask that starts beyond the data.
TEST(CheckVerdicts, ReportOfOneRunIsExact) {
  std::vector<double> times, errors;
  for (int i = 0; i < 32000; ++i) {
    times.push_back(i / 16.0);
    errors.push_back(25 + 6 * std::sin(i / 16.0 / 300));
  }
  VDMaskTable table = VDMaskTable::builtIn();
  std::string error;
  ASSERT_TRUE(table.addDefinitions(
      "late | mtie | 5000 < tau <= 9000: 1 | mine | 1 | - | none | lab | a mask beyond the data",
      "user.txt", error));
  std::vector<const VDMask*> masks = table.masksWithId("g8273.2-c");
  masks.push_back(table.find("g8272-prtc-a", "tdev"));
  masks.push_back(table.find("late", "mtie"));
  const VDCSettledWindow window = VDCSettledWindow::afterSeconds(times, 300);
  const VDTimeErrorMetrics metrics(times, errors, window.first, window.end);
  VDCMaskChecks checks(metrics, window, {});
  const VDCCheckReport report(
      {"run.log", "ptp4l", 32000, 0.0625, 0, times[window.first], times.back(), window.samples()},
      checks.evaluate(masks), false);
  const std::string expected =
      TestSupport::readFile(TestSupport::sourceDir() / "tests/data/check/report.txt");
  EXPECT_EQ(report.consoleText() + "--- check.json\n" + report.json() + "--- check.junit.xml\n" +
                report.junitXML(),
            expected);
  EXPECT_EQ(report.exitStatus(), 1);
}

TEST(CheckVerdicts, TwoSettledSamplesAreEnoughForOneWindow) {
  const std::vector<double> times = {0, 1, 400, 401};
  const std::vector<double> errors = {900, 900, 10, 170};
  const VDCSettledWindow window = VDCSettledWindow::afterSeconds(times, 300);
  const VDTimeErrorMetrics metrics(times, errors, window.first, window.end);
  VDCMaskChecks checks(metrics, window, {});
  const VDCMaskCheck check =
      checks.evaluate({VDMaskTable::builtIn().find("gptp-one-hop", "mtie")}).front();
  EXPECT_EQ(check.verdict.outcome, VDMaskVerdict::Outcome::pass);
  EXPECT_EQ(check.verdict.value, 160);
  EXPECT_EQ(check.verdict.atTau, 1);
}

TEST(CheckVerdicts, RunVerdictAndExitStatus) {
  const VDMask& mask = *VDMaskTable::builtIn().find("g8273.2-c", "cte");
  using Outcome = VDMaskVerdict::Outcome;
  auto check = [&](Outcome outcome) {
    VDMaskVerdict verdict;
    verdict.outcome = outcome;
    return VDCMaskCheck{&mask, verdict};
  };
  struct Case {
    std::vector<VDCMaskCheck> checks;
    bool lostLock;
    int status;
  };
  const Case cases[] = {
      {{check(Outcome::pass), check(Outcome::pass)}, false, 0},
      {{check(Outcome::pass), check(Outcome::fail)}, false, 1},
      {{check(Outcome::notEvaluated), check(Outcome::fail)}, false, 1},
      {{check(Outcome::pass), check(Outcome::notEvaluated)}, false, 3},
      {{}, false, 3},
      {{check(Outcome::pass)}, true, 1},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(VDCCheckReport({}, c.checks, c.lostLock).exitStatus(), c.status);
  }
}

TEST(CheckVerdicts, OptionValuesAreCheckedAsTheyAreRead) {
  struct Case {
    const char* option;
    const char* value;
    const char* error;  // empty: accepted
  };
  const Case cases[] = {
      {"--settle", "servo", ""},
      {"--settle", "0", ""},
      {"--settle", "-1", "--settle takes seconds (0 or more) or servo, not \"-1\""},
      {"--settle", "5m", "--settle takes seconds (0 or more) or servo, not \"5m\""},
      {"--average", "100", ""},
      {"--average", "99", "--average takes a whole number of samples of at least 100, not \"99\""},
      {"--average", "100.5",
       "--average takes a whole number of samples of at least 100, not \"100.5\""},
      {"--window", "0", "--window takes seconds above 0, not \"0\""},
      {"--window", "nan", "--window takes seconds above 0, not \"nan\""},
      {"--mask", ",", "--mask needs a mask id (--list-masks lists them)"},
  };
  for (const Case& c : cases) {
    VDCVerdictOptions options;
    std::string error;
    EXPECT_EQ(options.take(c.option, c.value, error), *c.error == 0) << c.option << c.value;
    EXPECT_EQ(error, c.error);
  }

  VDCVerdictOptions options;
  std::string error;
  ASSERT_TRUE(options.take("--mask", "g8273.2-c,,gptp-one-hop", error));
  VDMaskTable table;
  ASSERT_TRUE(options.readMaskTable(table, error));
  std::vector<const VDMask*> masks;
  ASSERT_TRUE(options.selectedMasks(table, masks, error));
  EXPECT_EQ(masks.size(), 7u);
  ASSERT_TRUE(options.take("--mask", "g8273.2-e", error));
  EXPECT_FALSE(options.selectedMasks(table, masks, error));
  EXPECT_EQ(error, "unknown mask \"g8273.2-e\" (--list-masks lists them)");
  for (const char* path : {"/nonexistent/masks.txt", "/tmp", "/dev/zero"}) {
    VDCVerdictOptions withFile;
    withFile.maskFiles = {path};
    EXPECT_FALSE(withFile.readMaskTable(table, error)) << path;
    EXPECT_EQ(error, std::string(path) == "/dev/zero"
                         ? "the mask file /dev/zero is larger than 1 MiB"
                         : "cannot read the mask file " + std::string(path));
  }
}

}  // namespace
