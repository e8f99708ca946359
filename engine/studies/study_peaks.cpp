#include "engine/studies/study_peaks.h"

#include <algorithm>
#include <cmath>

#include "engine/base/refusal.h"
#include "engine/base/text_file.h"
#include "engine/images/talairach.h"
#include "engine/studies/peak_value.h"
#include "engine/studies/study_rules.h"
#include "util/q_string.h"
#include "util/text.h"

namespace kvo::studies {

namespace {

[[noreturn]] void refuse_below_threshold(const Study& study, const WrittenPeak& peak, double t) {
  std::string what =
      at_line(peaks_file(study), peak.line) + "the peak of study '" + study.name + "' at";
  for (const std::string& mm : peak.at) what.append(" ").append(mm);
  what += " has the t value " + peak.height;
  what += study.threshold_t ? ", but its threshold_t is " + text_of(*study.threshold_t)
                            : ", but its threshold_p of " + text_of(*study.threshold_p) +
                                  Q_format(" is a t of %.3f", t).str();
  throw Refusal(what + ".");
}

Peak peak_of(const Study& study, const WrittenPeak& written, Threshold threshold) {
  Peak peak{};
  for (std::size_t axis = 0; axis < 3; ++axis)
    peak.mm[Eigen::Index(axis)] = number_of(written.at[axis]).value();
  const std::optional<double> t = number_of(written.height);
  peak.height_known = t.has_value();
  if (t && !threshold.assumed && largest_t(written, study.sample) < threshold.t)
    refuse_below_threshold(study, written, threshold.t);
  peak.g = hedges_g(t.value_or(written.height == "p" ? threshold.t : -threshold.t), study.sample);
  return peak;
}

}  // namespace

std::string peaks_file(const Study& study) {
  return peaks_file_of(study.name);
}

StudyPeaks read_peaks(const Study& study) {
  const std::string path = peaks_file(study), text = read_text(path);
  const PeaksList list = peaks_list_of(path, text);
  StudyPeaks read{{}, Q_sha256(text), list.space == Space::talairach, false};
  const Threshold threshold = threshold_of(study);
  for (const WrittenPeak& written : list.peaks) {
    read.peaks.push_back(peak_of(study, written, threshold));
    read.unknown_heights |= !read.peaks.back().height_known;
    if (read.talairach) read.peaks.back().mm = mni_of_talairach(read.peaks.back().mm);
  }
  return read;
}

}  // namespace kvo::studies
