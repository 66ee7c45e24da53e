// The dual-link analysis rendered for real on the sample recording: the console transcript, and
// the limit lines and the one-hop mask present in the PNGs (found by their colour).

#include <gtest/gtest.h>

#include "TestSupport.h"
#include "VDPAnalyseDualLink.h"
#include "VDPPythonInterpreter.h"

namespace {

namespace fs = std::filesystem;

// Counts the pixels of the limit colour #fac205 in a PNG, with the embedded interpreter.
int limitColourPixels(const fs::path& png, const fs::path& result) {
  VDPPythonInterpreter::runScript(
      "import matplotlib.image, numpy\n"
      "pixels = matplotlib.image.imread('" +
      png.string() +
      "')[:, :, :3]\n"
      "limit = numpy.array([0xfa, 0xc2, 0x05]) / 255.0\n"
      "found = numpy.all(numpy.abs(pixels - limit) < 0.02, axis=2).sum()\n"
      "open('" +
      result.string() + "', 'w').write(str(found))\n");
  return std::stoi(TestSupport::readFile(result));
}

TEST(DualLinkRender, SampleRecordingFailsInFullAndPassesConverged) {
  TestSupport::TempDir dir;
  VDPPythonInterpreter::start("dual_link_render_test");
  std::unique_ptr<VDPAnalyseDualLink> analyser = VDPAnalyseDualLink::initWithArguments(
      {"--data", (TestSupport::sourceDir() / "examples" / "dual-link.csv").string(), "--output",
       dir.path().string(), "--no-madev", "--no-tdev"});
  ASSERT_NE(analyser, nullptr);
  testing::internal::CaptureStdout();
  EXPECT_TRUE(analyser->execute());
  const std::string out = testing::internal::GetCapturedStdout();
  const size_t converged = out.find("=== Converged (skip 60s) File Analysis ===\n");
  ASSERT_NE(converged, std::string::npos) << out;
  EXPECT_EQ(out.substr(0, out.find("TimeError:")),
            "Loading time errors into memory...\n=== Full File Analysis ===\n"
            "FAIL: Time Error DOES NOT conform to 1 hop gPTP limit.\n");
  EXPECT_NE(out.find("FAIL: MTIE DOES NOT conform to 1 hop gPTP Mask.\n"), std::string::npos);
  EXPECT_NE(out.find("PASS: Time Error conforms to 1 hop gPTP limit\n", converged),
            std::string::npos);
  EXPECT_NE(out.find("PASS: MTIE conforms to 1 hop gPTP Mask\n", converged), std::string::npos);

  for (const char* sub : {"full", "converged"}) {
    const fs::path directory = dir / sub;
    EXPECT_GT(limitColourPixels(directory / "dual_link_analysis_time_error.png", dir / "count"),
              1000)
        << sub;
    EXPECT_GT(limitColourPixels(directory / "dual_link_analysis_mtie.png", dir / "count"), 300)
        << sub;
  }
  // The saved MTIE script carries the mask too.
  EXPECT_NE(TestSupport::readFile(dir / "converged" / "PlotMTIE.py").find("gPTP1HopMTIE"),
            std::string::npos);
  VDPPythonInterpreter::finalise();
}

}  // namespace
