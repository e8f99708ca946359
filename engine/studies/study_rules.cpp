#include "engine/studies/study_rules.h"

#include <cmath>

#include "engine/base/text_file.h"
#include "engine/studies/effect_size.h"
#include "workspace/files/file_names.h"

namespace kvo::studies {

namespace {

constexpr int most_people = 1000000000;
constexpr double most_t = 1000;
constexpr int most_peaks = 1000;
constexpr double most_mm = 200, most_voxels = 1000000;
// With fewer there is no variance within the samples, or no unbiased effect size.
constexpr int least_of_one_sample = 3, least_of_two = 2;

enum class Kind { whole, from, above };

/// The numbers that a column may have.
struct Range {
  Kind kind;
  double least, most;
  bool required = false;
};

std::optional<Range> range_of(std::string_view column, std::string_view n2) {
  const int least_n = column == "n2" || !is_missing(n2) ? least_of_two : least_of_one_sample;
  if (column == "n1") return Range{Kind::whole, double(least_n), most_people, true};
  if (column == "n2") return Range{Kind::whole, double(least_n), most_people};
  if (column == "threshold_t") return Range{Kind::above, 0, most_t};
  if (column == "threshold_p") return Range{Kind::above, 0, 0.5};
  if (column == "peaks_per_cluster") return Range{Kind::whole, 1, most_peaks};
  if (column == "peak_distance") return Range{Kind::above, 0, most_mm};
  if (column == "cluster_extent") return Range{Kind::from, 0, most_voxels};
  return std::nullopt;
}

bool holds(const Range& range, double number) {
  return number <= range.most &&
         (range.kind == Kind::above ? number > range.least : number >= range.least) &&
         (range.kind != Kind::whole || number == std::floor(number));
}

std::string not_in(const Range& range) {
  const std::string least = decimals_of(range.least), most = decimals_of(range.most);
  if (range.kind == Kind::above) return "not a number above " + least + " and up to " + most;
  return std::string(range.kind == Kind::whole ? "not a whole number" : "not a number") + " from " +
         least + " to " + most;
}

/// The sample of those sizes; nothing when no sample can have them.
std::optional<Sample> sample_of(SizeCells sizes) {
  if (value_fault("n1", sizes.n1, sizes) || value_fault("n2", sizes.n2, sizes)) return std::nullopt;
  return Sample{int(*number_of(sizes.n1)), int(number_of(sizes.n2).value_or(0))};
}

}  // namespace

bool is_missing(std::string_view text) {
  return text.empty() || text == missing_value;
}

const char* cell_fault(std::string_view text) {
  return text.find_first_of("\n\r\v\f") == std::string_view::npos ? nullptr : "holds a line break";
}

std::optional<std::string> value_fault(std::string_view column, std::string_view text,
                                       SizeCells sizes) {
  const std::optional<Range> range = range_of(column, sizes.n2);
  if (!range || (!range->required && is_missing(text))) return std::nullopt;
  const std::optional<double> number = number_of(text);
  if (!number || !holds(*range, *number)) return not_in(*range);
  if (column != "threshold_p") return std::nullopt;
  const std::optional<Sample> sample = sample_of(sizes);
  if (!sample || t_of_p(*number, *sample) <= most_t) return std::nullopt;
  return "too small for so few participants: its t is above " + decimals_of(most_t);
}

const char* thresholds_fault(std::string_view threshold_t, std::string_view threshold_p) {
  return is_missing(threshold_t) || is_missing(threshold_p)
             ? nullptr
             : "gives both threshold_t and threshold_p";
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
