#pragma once

// The study table of the working folder, as far as the statistics need it.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "engine/studies/effect_size.h"
#include "engine/studies/studies_layer.h"

namespace kvo::studies {

struct Study {
  std::string name;
  std::size_t line = 0;  ///< of the table's file
  Sample sample;
  /// The threshold above which the study called a voxel significant, as a t value or a one-tailed
  /// p, not both.
  std::optional<double> threshold_t, threshold_p;
  std::optional<int> peaks_per_cluster;  ///< the most that the study lists
  std::optional<double> peak_distance;   ///< least distance between listed peaks in mm
  std::optional<double> cluster_extent;  ///< least size of a cluster in voxels of 2 mm
  std::vector<std::string> values;       ///< one for each column; "NA" when missing
};

/// The one-tailed p taken as the threshold of studies that state none.
inline constexpr double assumed_threshold_p = 0.001;

struct Threshold {
  double t;
  bool assumed;  ///< the table does not state it
};

/// The study's threshold: its threshold_t, or the t value whose one-tailed p is its threshold_p,
/// else assumed_threshold_p.
Threshold threshold_of(const Study& study);

struct StudyTable {
  std::vector<std::string> columns;
  std::vector<Study> studies;

  /// Index of a column, nothing when there is none of that name.
  [[nodiscard]] std::optional<std::size_t> column(std::string_view name) const;
};

/// Reads and checks the table of the working folder. Throws Refusal, naming the line, when it has
/// no studies, a name that is missing, duplicated or unfit for a file name, a value that its column
/// cannot have (study_rules.h), or a line that does not fit the header.
StudyTable read_study_table();

/// Index of a column. Throws Refusal when there is none of that name.
std::size_t required_column(const StudyTable& table, const std::string& name);

/// The number in a study's column, nothing when it is missing. Throws Refusal when it is not a
/// number.
std::optional<double> study_number(const StudyTable& table, const Study& study, std::size_t column);

/// Indices of the studies that a filter lets through: all when it is "", else those whose value in
/// the column of that name is a number other than 0. Throws Refusal when there is no such column, a
/// value is neither a number nor missing, or no study is left.
std::vector<std::size_t> filtered_studies(const StudyTable& table, const std::string& filter);

/// Tells the user how many of all studies the filter leaves out, if any.
void say_filtered(std::size_t left_out, std::size_t all);

}  // namespace kvo::studies
