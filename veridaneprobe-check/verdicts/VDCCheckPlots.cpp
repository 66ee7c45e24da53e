#include "VDCCheckPlots.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <optional>
#include <utility>

#include "VDCSVBuffer.h"
#include "VDPlotReduction.h"
#include "VDPlotScript.h"

namespace {

constexpr const char* kLowPassColour = "#e67e22";
constexpr const char* kBeyondColour = "#c0392b";
constexpr const char* kMaskColours[] = {"#117a65", "#7d3c98", "#2e4053", "#b7950b", "#a04000"};
// Dash patterns by turn, so that a mask drawn over another's stretch leaves it visible.
constexpr const char* kMaskDashes[] = {"(0, (6, 3))", "(0, (2, 2))", "(0, (8, 3, 2, 3))",
                                       "(0, (12, 4))"};

std::string pythonList(const std::vector<double>& values) {
  VDCSVBuffer text;
  text.appendText("np.array([");
  for (size_t i = 0; i < values.size(); ++i) {
    if (i > 0) {
      text.appendText(", ");
    }
    text.appendDouble(values[i]);
  }
  text.appendText("])");
  return text.text();
}

std::string numberText(double value) {
  VDCSVBuffer text;
  text.appendDouble(value);
  return text.text();
}

// The lines of the masks that pass, each drawn once: masks whose lines would coincide (classes A
// and B of one metric) share one, labelled with all their ids. A line is a number for the
// single-number limits, two arrays (tau, limit) for curves within [firstTau, lastTau].
std::vector<std::pair<std::string, std::string>> sharedLines(
    const std::vector<const VDMask*>& masks, const std::function<bool(const VDMask&)>& passes,
    double firstTau = 0, double lastTau = 0) {
  std::vector<std::pair<std::string, std::string>> lines;
  for (const VDMask* mask : masks) {
    if (!passes(*mask)) {
      continue;
    }
    std::string line;
    if (mask->curve) {
      std::vector<double> taus;
      std::vector<double> limits;
      for (const VDMaskVerdict::CurvePoint& point :
           VDCCheckPlots::maskLine(*mask, firstTau, lastTau)) {
        taus.push_back(point.tau);
        limits.push_back(point.value);
      }
      line = pythonList(taus) + ", " + pythonList(limits);
    } else {
      line = numberText(mask->segments.front().limitAt(0));
    }
    // The same line of another metric is another line.
    const std::string label = mask->id + " " + mask->metric;
    const auto same = std::find_if(lines.begin(), lines.end(), [&](const auto& drawn) {
      return drawn.first == line &&
             drawn.second.substr(drawn.second.rfind(' ')) == label.substr(label.rfind(' '));
    });
    if (same == lines.end()) {
      lines.emplace_back(line, label);
    } else {
      same->second.insert(same->second.rfind(' '), ", " + mask->id);
    }
  }
  return lines;
}

}  // namespace

VDCCheckPlots::VDCCheckPlots(std::string outputPath, std::string outputName, ScriptSaver save,
                             ScriptRunner run)
    : _outputPath(std::move(outputPath)),
      _outputName(std::move(outputName)),
      _save(std::move(save)),
      _run(std::move(run)) {}

std::vector<VDMaskVerdict::CurvePoint> VDCCheckPlots::maskLine(const VDMask& mask, double firstTau,
                                                               double lastTau) {
  std::vector<VDMaskVerdict::CurvePoint> line;
  for (const VDMaskSegment& segment : mask.segments) {
    const double from = std::max(segment.lower, firstTau);
    const double to = std::min(segment.upper, lastTau);
    if (!(from < to)) {
      continue;
    }
    const int steps = std::max(1, static_cast<int>(std::ceil(64 * std::log10(to / from))));
    for (int i = 0; i <= steps; ++i) {
      const double tau = i == steps ? to : from * std::pow(to / from, double(i) / steps);
      line.push_back({tau, segment.limitAt(tau)});
    }
  }
  return line;
}

void VDCCheckPlots::render(const std::string& scriptName, const std::string& stem,
                           const std::function<std::string(bool saving)>& scriptFor) const {
  _save(
      _outputPath + "/" + scriptName,
      scriptFor(false) + VDPlotScript::ending(VDPlotScript::kDefaultPlotSize, std::nullopt, true));
  // One run draws the figure once and saves it twice: these plots may hold a day of samples.
  const std::string stemPath = _outputPath + "/" + stem;
  const std::string dotsPerInch = std::to_string(VDPlotScript::kDotsPerInch);
  _run(scriptFor(true) + VDPlotScript::kDefaultPlotSize + "\nf1.tight_layout()\n" + "f1.savefig('" +
       stemPath + ".png', dpi=" + dotsPerInch + ")\n" + "f1.savefig('" + stemPath +
       ".pdf', dpi=" + dotsPerInch + ")\nplt.close(f1)\n");
}

void VDCCheckPlots::plotTimeError(const std::vector<double>& times,
                                  const std::vector<double>& errors,
                                  const std::vector<double>& lowPassed,
                                  const VDCSettledWindow& window,
                                  const std::vector<const VDMask*>& masks) const {
  const std::string stem = _outputName + "_check_time_error";
  VDCSVBuffer csv(_outputPath + "/" + stem + ".csv");
  csv.appendText("time,time_error,low_pass\n");
  for (size_t i = 0; i < times.size(); ++i) {
    csv.appendDouble(times[i] - times.front());
    csv.appendSeparator();
    csv.appendDouble(errors[i]);
    csv.appendSeparator();
    csv.appendDouble(lowPassed[i]);
    csv.endRow();
  }
  csv.finish();

  std::string limits;
  int colour = 0;
  for (const auto& [limit, label] : sharedLines(masks, [](const VDMask& mask) {
         return mask.metric == "max_abs_te" || mask.metric == "max_abs_te_l";
       })) {
    limits += "for sign in (1, -1):\n    ax1.axhline(sign * " + limit + ", color='" +
              kMaskColours[colour++ % 5] + "', linestyle='" +
              (label.find("max_abs_te_l") == std::string::npos ? "-" : "--") +
              "', linewidth=1.2, label='" + label + "' if sign > 0 else '_')\n";
  }
  // The settled window is shaded, and the view holds it and the limits: a start-up step of
  // milliseconds would otherwise flatten the nanoseconds the verdict is about.
  std::string shading;
  if (window.samples() > 0) {
    double lowest = 0;
    double highest = 0;
    for (size_t i = window.first; i < window.end; ++i) {
      lowest = std::min({lowest, errors[i], lowPassed[i]});
      highest = std::max({highest, errors[i], lowPassed[i]});
    }
    for (const VDMask* mask : masks) {
      if (mask->metric == "max_abs_te" || mask->metric == "max_abs_te_l") {
        const double limit = mask->segments.front().limitAt(0);
        lowest = std::min(lowest, -limit);
        highest = std::max(highest, limit);
      }
    }
    const double margin = 0.08 * (highest - lowest) + 1e-3;
    shading = "ax1.axvspan(" + numberText(times[window.first] - times.front()) + ", " +
              numberText(times[window.end - 1] - times.front()) +
              ", color='#d6eaf8', alpha=0.6, zorder=0, label='Settled')\n" + "ax1.set_ylim(" +
              numberText(lowest - margin) + ", " + numberText(highest + margin) + ")\n";
  }
  render("PlotCheckTimeError.py", stem, [&](bool saving) {
    const std::optional<std::string> outputPath =
        saving ? std::optional<std::string>(_outputPath) : std::nullopt;
    std::string script = VDPlotScript::header();
    if (saving) {
      // The run that saves the figure gets the points it draws from here, not by reading back
      // the CSV just written (a day at 16 Hz is over a million rows).
      std::vector<double> shownTimes, shownErrors, shownLowPassed;
      const auto at = [](const std::vector<double>& values) {
        return [&values](size_t i) { return values[i]; };
      };
      for (const size_t i : VDPlotReduction::pixelColumnExtremes(times.size(), at(times), false,
                                                                 {at(errors), at(lowPassed)})) {
        shownTimes.push_back(times[i] - times.front());
        shownErrors.push_back(errors[i]);
        shownLowPassed.push_back(lowPassed[i]);
      }
      script += "time = " + pythonList(shownTimes) + "\ntimeError = " + pythonList(shownErrors) +
                "\nlowPass = " + pythonList(shownLowPassed) + "\n\n";
    } else {
      script += "records = mlab.csv2rec(" +
                VDPlotScript::csvPathExpression(outputPath, stem + ".csv") +
                ")\ntime = records.time\ntimeError = records.time_error\n"
                "lowPass = records.low_pass\n\n";
    }
    script += VDPlotScript::curveOptions("time");
    script += "\nf1, ax1 = plt.subplots()\n" + shading;
    script +=
        "ax1.plot(time, timeError, color='#b03a2e', linewidth=0.8, marker=markerStyle, "
        "markersize=3, label='Time "
        "error', rasterized=rasterizeCurve)\n";
    script += "ax1.plot(time, lowPass, color='" + std::string(kLowPassColour) +
              "', linewidth=1.5, label='0.1 Hz low-pass', rasterized=rasterizeCurve)\n";
    script += limits;
    // Finding the best place among a day of samples costs seconds: a corner then.
    script += std::string("ax1.legend(loc='") +
              (times.size() <= VDPlotScript::kRasterisedPoints ? "best" : "upper right") +
              "', fontsize=11, framealpha=0.9)\n";
    script += VDPlotScript::labels("Time since the first sample (s)", "Time Error (ns)",
                                   "Time Error - " + _outputName);
    script += "ax1.grid(True, linestyle='-', linewidth=0.8, alpha=0.6)\n\n";
    return script;
  });
}

void VDCCheckPlots::plotCurves(
    const std::map<std::string, std::vector<VDMaskVerdict::CurvePoint>>& curves,
    const std::vector<const VDMask*>& masks) const {
  for (const char* kind : {"mtie", "tdev"}) {
    if (curves.count(kind) > 0 || curves.count(std::string("dte_l_") + kind) > 0) {
      plotCurve(kind, curves, masks);
    }
  }
}

void VDCCheckPlots::plotCurve(
    const std::string& kind,
    const std::map<std::string, std::vector<VDMaskVerdict::CurvePoint>>& curves,
    const std::vector<const VDMask*>& masks) const {
  const std::string title = kind == "mtie" ? "MTIE" : "TDEV";
  // The curves of x and of its low-pass that masks asked for: metric, label, colour.
  struct Drawn {
    std::string metric;
    std::string label;
    const char* colour;
  };
  std::vector<Drawn> drawn;
  for (const Drawn& candidate :
       {Drawn{kind, title + " of the time error", VDPlotScript::kCurveColour},
        Drawn{"dte_l_" + kind, title + " of the 0.1 Hz low-pass", kLowPassColour}}) {
    if (curves.count(candidate.metric) > 0) {
      drawn.push_back(candidate);
    }
  }
  double firstTau = INFINITY;
  double lastTau = 0;
  // Each curve's CSV: tau, value, and whether a selected mask of that metric is exceeded there.
  for (const Drawn& curve : drawn) {
    VDCSVBuffer csv;
    csv.appendText("tau," + curve.metric + ",beyond\n");
    for (const VDMaskVerdict::CurvePoint& point : curves.at(curve.metric)) {
      bool beyond = false;
      for (const VDMask* mask : masks) {
        const std::optional<double> limit =
            mask->metric == curve.metric ? mask->limitAtTau(point.tau) : std::nullopt;
        beyond = beyond || (limit && !(point.value <= *limit));
      }
      csv.appendDouble(point.tau);
      csv.appendSeparator();
      csv.appendDouble(point.value);
      csv.appendText(beyond ? ",1\n" : ",0\n");
      firstTau = std::min(firstTau, point.tau);
      lastTau = std::max(lastTau, point.tau);
    }
    csv.writeToFile(_outputPath + "/" + _outputName + "_check_" + curve.metric + ".csv");
  }
  std::string maskLines;
  int colour = 0;
  const auto ofThisKind = [&kind](const VDMask& mask) {
    return mask.metric == kind || mask.metric == "dte_l_" + kind;
  };
  for (const auto& [line, label] : sharedLines(masks, ofThisKind, firstTau, lastTau)) {
    maskLines += "ax1.loglog(" + line + ", color='" + kMaskColours[colour % 5] +
                 "', linestyle=" + kMaskDashes[colour % 4] + ", linewidth=1.6, label='" + label +
                 "')\n";
    ++colour;
  }
  const std::string stem = _outputName + "_check_" + kind;
  render("PlotCheck" + title + ".py", stem, [&](bool saving) {
    const std::optional<std::string> outputPath =
        saving ? std::optional<std::string>(_outputPath) : std::nullopt;
    std::string script = VDPlotScript::header();
    script += saving ? VDPlotScript::pixelColumnExtremesFunction() : "";
    script += "f1, ax1 = plt.subplots()\nbeyondTau = []\nbeyondValue = []\n";
    for (const Drawn& curve : drawn) {
      const std::string csvName = _outputName + "_check_" + curve.metric + ".csv";
      script += "records = mlab.csv2rec(" + VDPlotScript::csvPathExpression(outputPath, csvName) +
                ")\ntau = records.tau\nvalue = records." + curve.metric + "\n";
      script +=
          saving ? "shown = pixelColumnExtremes(tau, True, value)\n" : "shown = slice(None)\n";
      script += VDPlotScript::curveOptions("tau[shown]");
      script += "ax1.loglog(tau[shown], value[shown], color='" + std::string(curve.colour) +
                "', linestyle='-', linewidth=1.5, marker=markerStyle, markersize=4, label='" +
                curve.label + "', rasterized=rasterizeCurve, zorder=3)\n";
      // Of the points drawn, those beyond a mask: a mark each (a mark per window of a long curve
      // would hide it and cost seconds in a PDF).
      script +=
          "beyond = records.beyond[shown] == 1\n"
          "beyondTau.extend(tau[shown][beyond])\n"
          "beyondValue.extend(value[shown][beyond])\n";
    }
    script += maskLines;
    // Listed in the legend only where there is a mark to explain.
    script +=
        "if beyondTau:\n"
        "    ax1.plot(beyondTau, beyondValue, linestyle='None', marker='x', markersize=5, "
        "color='" +
        std::string(kBeyondColour) + "', label='Beyond a mask', zorder=4)\n";
    script += VDPlotScript::decadeGrid("ax1");
    script += "ax1.legend(loc='best', fontsize=11, framealpha=0.9)\n";
    script += VDPlotScript::labels("Tau (s)", title + " (ns)", title + " - " + _outputName);
    script += "\n";
    return script;
  });
}
