#include "engine/studies/study_rules.h"

#include <cmath>

#include "engine/base/text_file.h"
#include "util/q_string.h"
#include "workspace/files/file_names.h"

namespace kvo::studies {

namespace {

constexpr int most_people = 1000000000;
constexpr double most_t = 1000;
// With fewer there is no variance within the samples, or no unbiased effect size.
constexpr int least_of_one_sample = 3, least_of_two = 2;

}  // namespace

bool is_missing(std::string_view text) {
  return text.empty() || text == missing_value;
}

const char* cell_fault(std::string_view text) {
  return text.find_first_of("\n\r\v\f") == std::string_view::npos ? nullptr : "holds a line break";
}

std::optional<std::string> value_fault(std::string_view column, std::string_view text,
                                       std::string_view n2) {
  const bool is_n2 = column == "n2";
  const std::optional<double> number = number_of(text);
  if (column == "n1" || is_n2) {
    // A study with one sample has no second size.
    if (is_n2 && is_missing(text)) return std::nullopt;
    const int least = is_n2 || !is_missing(n2) ? least_of_two : least_of_one_sample;
    if (number && *number >= least && *number <= most_people && *number == std::floor(*number))
      return std::nullopt;
    return Q_format("not a whole number from %i to %i", least, most_people).str();
  }
  if (column != "threshold_t" || is_missing(text)) return std::nullopt;
  if (number && *number > 0 && *number <= most_t) return std::nullopt;
  return Q_format("not a number above 0 and up to %g", most_t).str();
}

const char* variable_fault(std::string_view name) {
  return name.find_first_of("+=\"'") == std::string_view::npos ? nullptr
                                                               : "holds a quote, '=' or '+'";
}

std::string peaks_file_of(const std::string& study) {
  return study + ".peaks.txt";
}

std::string image_file_of(const std::string& study) {
  return study + KVO_IMAGE_SUFFIX;
}

std::optional<std::string> source_fault(const std::string& study, bool has_peaks, bool has_image) {
  if (has_peaks != has_image) return std::nullopt;
  const std::string files_of[] = {peaks_file_of(study), image_file_of(study)};
  if (has_peaks)
    return "Study '" + study + "' has both a peaks file '" + files_of[0] + "' and an image '" +
           files_of[1] + "'. Please keep one of them.";
  return "Study '" + study + "' has no peaks file '" + files_of[0] + "' and no image '" +
         files_of[1] + "'.";
}

}  // namespace kvo::studies
