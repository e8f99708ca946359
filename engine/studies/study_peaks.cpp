#include "engine/studies/study_peaks.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <span>

#include "engine/base/refusal.h"
#include "engine/base/text_file.h"
#include "engine/images/image.h"
#include "engine/images/talairach.h"
#include "engine/studies/study_rules.h"
#include "util/q_string.h"
#include "util/text.h"

namespace kvo::studies {

namespace {

// No head reaches as far from the anterior commissure; numbers beyond are slips of the pen or units
// other than mm.
constexpr double max_mm = 200;
constexpr std::size_t max_peaks = 5000;
constexpr std::string_view space_key = "space:";

bool same_ignoring_case(std::string_view a, std::string_view b) {
  const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c; };
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [&](char x, char y) { return lower(x) == lower(y); });
}

/// By how much the number may have been rounded: half of a unit of its last decimal.
double rounding_of(std::string_view number) {
  if (number.find_first_of("eE") != std::string_view::npos) return 0;
  const std::size_t point = number.find('.');
  const std::size_t decimals = point == std::string_view::npos ? 0 : number.size() - point - 1;
  return 0.5 * std::pow(10, -double(decimals));
}

/// Reads one peaks file; the members are what has been read so far.
struct Reader {
  const Study& study;
  std::string path;
  Threshold threshold;
  Space space = Space::unknown;
  std::vector<Peak> peaks;
  bool unknown_heights = false;

  [[noreturn]] void refuse(const TextLine& line, const std::string& what) const {
    throw Refusal(at_line(path, line.number) + what + ".");
  }

  void read_comment(const TextLine& line, std::string_view comment) {
    comment = Q_stripped(comment);
    if (!same_ignoring_case(comment.substr(0, space_key.size()), space_key)) return;
    const std::string_view name = Q_stripped(comment.substr(space_key.size()));
    const Space named = same_ignoring_case(name, "MNI")         ? Space::mni
                        : same_ignoring_case(name, "Talairach") ? Space::talairach
                                                                : Space::unknown;
    if (named == Space::unknown)
      refuse(line, "the space '" + std::string(name) + "' is neither MNI nor Talairach");
    if (space != Space::unknown && space != named) refuse(line, "a second space is given");
    space = named;
  }

  [[noreturn]] void refuse_below_threshold(const TextLine& line,
                                           const std::vector<std::string_view>& cells) const {
    std::string what = "the peak of study '" + study.name + "' at";
    for (const std::string_view coordinate : std::span(cells).first(3))
      what.append(" ").append(coordinate);
    what.append(" has the t value ").append(cells[3]);
    what += study.threshold_t ? ", but its threshold_t is " + text_of(*study.threshold_t)
                              : ", but its threshold_p of " + text_of(*study.threshold_p) +
                                    Q_format(" is a t of %.3f", threshold.t).str();
    refuse(line, what);
  }

  double height(const TextLine& line, const std::vector<std::string_view>& cells) {
    const std::string_view text = cells[3];
    if (text == "p" || text == "n") {
      unknown_heights = true;
      return text == "p" ? threshold.t : -threshold.t;
    }
    const std::optional<double> t = number_of(text);
    if (!t || std::abs(*t) > max_t)
      refuse(line, "the height '" + std::string(text) +
                       "' is neither a t value from -10000 to 10000 nor 'p' or 'n'");
    if (!threshold.assumed && std::abs(*t) + rounding_of(text) < threshold.t)
      refuse_below_threshold(line, cells);
    return *t;
  }

  void read_peak(const TextLine& line, std::string_view text) {
    std::string blanks(text);
    std::replace(blanks.begin(), blanks.end(), ',', ' ');
    const std::vector<std::string_view> cells = Q_words(blanks);
    // "1,5 -14 6" would pass for four numbers.
    const auto commas = std::count(text.begin(), text.end(), ',');
    if (commas != 0 && commas != 3)
      refuse(line,
             "commas stand neither between all numbers nor between none; decimals are "
             "written with a full stop");
    if (cells.size() != 4)
      refuse(line,
             "there are " + std::to_string(cells.size()) + " numbers; a peak has four: x y z t");
    Peak peak{};
    for (int axis = 0; axis < 3; ++axis) {
      const std::string_view cell = cells[std::size_t(axis)];
      const std::optional<double> mm = number_of(cell);
      if (!mm || std::abs(*mm) > max_mm)
        refuse(line,
               "the coordinate '" + std::string(cell) + "' is not a number of mm from -200 to 200");
      peak.mm[axis] = *mm;
    }
    peak.g = hedges_g(height(line, cells), study.sample);
    peak.height_known = cells[3] != "p" && cells[3] != "n";
    if (peaks.size() == max_peaks)
      refuse(line, "there are more than " + std::to_string(max_peaks) + " peaks");
    peaks.push_back(peak);
  }

  void read_line(const TextLine& line) {
    const std::size_t comment = line.text.find('#');
    if (comment != std::string_view::npos) read_comment(line, line.text.substr(comment + 1));
    const std::string_view peak = Q_stripped(line.text.substr(0, comment));
    if (!peak.empty()) read_peak(line, peak);
  }
};

}  // namespace

std::string peaks_file(const Study& study) {
  return peaks_file_of(study.name);
}

StudyPeaks read_peaks(const Study& study) {
  Reader reader{study, peaks_file(study), threshold_of(study), Space::unknown, {}, false};
  const std::string text = read_text(reader.path);
  for (const TextLine& line : filled_lines(text)) reader.read_line(line);
  if (reader.space == Space::unknown)
    throw Refusal("'" + reader.path + "' has no line '# space: MNI' or '# space: Talairach'.");
  if (reader.space == Space::talairach)
    for (Peak& peak : reader.peaks) peak.mm = mni_of_talairach(peak.mm);
  return {std::move(reader.peaks), Q_sha256(text), reader.space == Space::talairach,
          reader.unknown_heights};
}

}  // namespace kvo::studies
