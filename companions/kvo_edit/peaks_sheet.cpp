#include "companions/kvo_edit/peaks_sheet.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "engine/base/exists.h"
#include "engine/base/refusal.h"
#include "engine/base/text_file.h"
#include "engine/base/wording.h"
#include "engine/images/talairach.h"
#include "engine/images/voxel_grid.h"
#include "engine/studies/study.h"
#include "engine/studies/study_rules.h"
#include "util/read_file.h"
#include "util/text.h"

namespace kvo::edit {

namespace {

const std::vector<std::string> NAMES = {"x", "y", "z", "value", "is", "comment"};
constexpr long FEW_PEAKS = 6;        // of which all may well lie on one side
constexpr std::size_t CLEARLY = 2;   // peaks more outside of the brain
constexpr double NEAR_BRAIN_MM = 4;  // rounding, and brains of other shapes

std::string text_at(const Table& table, long row, long column) {
  const std::string& text = cell(table, row, column);
  return is_missing(text) ? "" : std::string(Q_stripped(text));
}

bool is_empty(const Table& table, long row) {
  for (long column = 0; column < column_count(table); ++column)
    if (!text_at(table, row, column).empty()) return false;
  return true;
}

bool is_coordinate(const std::string& text) {
  const std::optional<double> mm = number_of(text);
  return mm && std::abs(*mm) <= max_peak_mm;
}

/// The place of a row; nothing when a coordinate is no number.
std::optional<std::array<double, 3>> place_of(const Table& table, long row) {
  std::array<double, 3> mm{};
  for (std::size_t axis = 0; axis < mm.size(); ++axis) {
    const std::string text = text_at(table, row, static_cast<long>(axis));
    if (!is_coordinate(text)) return std::nullopt;
    mm[axis] = *number_of(text);
  }
  return mm;
}

std::array<double, 3> in_mni(const std::array<double, 3>& mm, Space space) {
  if (space != Space::talairach) return mm;
  const Eigen::Vector3d mni = mni_of_talairach({mm[0], mm[1], mm[2]});
  return {mni[0], mni[1], mni[2]};
}

/// Whether some voxel of the brain is near.
bool is_near(const std::vector<bool>& brain, const std::array<double, 3>& mm) {
  const auto low = mm_of({0, 0, 0});
  const int reach = int(NEAR_BRAIN_MM / voxel_mm);
  std::array<int, 3> at{};
  for (std::size_t axis = 0; axis < at.size(); ++axis)
    at[axis] = int(std::lround((mm[axis] - low[axis]) / voxel_mm));
  for (int k = at[2] - reach; k <= at[2] + reach; ++k)
    for (int j = at[1] - reach; j <= at[1] + reach; ++j)
      for (int i = at[0] - reach; i <= at[0] + reach; ++i)
        if (mni_grid().holds(i, j, k) && brain[mni_grid().index(i, j, k)]) return true;
  return false;
}

std::size_t outside(const Peaks_sheet& sheet, Space space, const std::vector<bool>& brain) {
  std::size_t count = 0;
  for (long row = 0; row < row_count(sheet.document.table); ++row)
    if (const auto mm = place_of(sheet.document.table, row))
      count += is_near(brain, in_mni(*mm, space)) ? 0 : 1;
  return count;
}

/// The kind of a value; that of a cell without a kind goes by the value.
std::optional<ValueKind> kind_of(const Table& table, long row) {
  const std::string kind = text_at(table, row, peak_kind);
  if (!kind.empty()) return value_kind_named(kind);
  return number_of(text_at(table, row, peak_value)) ? ValueKind::t : ValueKind::sign;
}

/// A row as the file will have it. The fault of one that cannot be.
struct Written_row {
  WrittenPeak peak;
  std::string fault;
  long column = peak_x;  ///< of the fault
};
Written_row written_row(const Table& table, long row, const Peak_facts& facts) {
  Written_row written;
  const auto refuse = [&](long column, std::string fault) {
    written.fault = std::move(fault);
    written.column = column;
    return written;
  };
  for (long axis = 0; axis < 3; ++axis) {
    const std::string text = text_at(table, row, axis);
    if (!is_coordinate(text))
      return refuse(axis, "The coordinate is not a number of mm from -200 to 200.");
    written.peak.at[static_cast<std::size_t>(axis)] = text;
  }
  written.peak.comment = text_at(table, row, peak_comment);
  const std::string value = text_at(table, row, peak_value);
  const std::optional<ValueKind> kind = kind_of(table, row);
  if (!kind) return refuse(peak_kind, "The kind of a value is t, z, p, g or sign.");
  const bool converts = *kind != ValueKind::t && *kind != ValueKind::sign && !value.empty();
  if (converts && !facts.sample)
    return refuse(peak_kind, "The sample size, n1, is needed to convert this into a t value.");
  if (!set_height(written.peak, *kind, value, facts.sample.value_or(Sample{})))
    return refuse(peak_value, std::string("The value is no ") +
                                  (*kind == ValueKind::sign ? "+ or -" : name_of(*kind)) +
                                  " that a study can have.");
  return written;
}

/// What is wrong with the value beside what written_row() sees.
std::optional<Fault> threshold_fault(const WrittenPeak& peak, const Peak_facts& facts) {
  if (!facts.threshold_t || !facts.sample || !number_of(peak.height) ||
      largest_t(peak, *facts.sample) >= *facts.threshold_t)
    return std::nullopt;
  return Fault{Severity::problem, "The value is below the threshold that the study states: t " +
                                      decimals_of(std::round(*facts.threshold_t * 1000) / 1000) +
                                      "."};
}

/// The first row with the same place; -1 when there is none before it.
long same_place_before(const Table& table, long row) {
  const auto mm = place_of(table, row);
  for (long other = 0; mm && other < row; ++other)
    if (place_of(table, other) == mm) return other;
  return -1;
}

std::optional<Fault> place_fault(const Peaks_sheet& sheet, const std::vector<bool>& brain,
                                 long row) {
  const Table& table = sheet.document.table;
  const auto mm = place_of(table, row);
  if (!mm) return std::nullopt;
  if (const long other = same_place_before(table, row); other >= 0)
    return Fault{Severity::note, "Peak " + std::to_string(other + 1) + " is at the same place."};
  if (!brain.empty() && !is_near(brain, in_mni(*mm, sheet.space)))
    return Fault{Severity::note, "The peak lies outside of the brain."};
  return std::nullopt;
}

/// All peaks on one side may come from a lost minus sign.
std::optional<Fault> side_fault(const Table& table) {
  long left = 0, right = 0;
  for (long row = 0; row < row_count(table); ++row) {
    const auto mm = place_of(table, row);
    left += mm && (*mm)[0] < 0 ? 1 : 0;
    right += mm && (*mm)[0] > 0 ? 1 : 0;
  }
  if (std::min(left, right) > 0 || std::max(left, right) < FEW_PEAKS) return std::nullopt;
  return Fault{Severity::note, std::string("All peaks lie on the ") +
                                   (left > 0 ? "left" : "right") +
                                   ": a minus sign may have been lost, or sides be swapped."};
}

}  // namespace

Peak_facts peak_facts_of(const Check_index& index, const Table& table, long row) {
  Peak_facts facts;
  const auto number_in = [&](long column, const char* name) -> std::optional<double> {
    if (column < 0) return std::nullopt;
    const auto in = [&](long of) { return of < 0 ? std::string() : cell(table, row, of); };
    const std::string& text = cell(table, row, column);
    if (value_fault(name, text, {in(index.n1_column), in(index.n2_column)})) return std::nullopt;
    return number_of(text);
  };
  const auto n1 = number_in(index.n1_column, "n1"), n2 = number_in(index.n2_column, "n2");
  if (!n1) return facts;
  Study study;
  study.sample = {static_cast<int>(*n1), static_cast<int>(n2.value_or(0))};
  study.threshold_t = number_in(index.threshold_t_column, "threshold_t");
  study.threshold_p = number_in(index.threshold_p_column, "threshold_p");
  facts.sample = study.sample;
  if (study.threshold_t.has_value() != study.threshold_p.has_value())
    facts.threshold_t = threshold_of(study).t;
  return facts;
}

Peaks_sheet open_peaks_sheet(const std::string& path, const Peak_facts& facts) {
  Peaks_sheet sheet;
  sheet.path = path;
  sheet.document.path = path;
  sheet.document.table.header.cells = NAMES;
  if (!path_exists(path)) return sheet;
  sheet.on_disk = read_text(path);
  const PeaksList list = peaks_list_of(path, *sheet.on_disk);
  sheet.space = sheet.saved_space = list.space;
  sheet.notes = list.notes;
  for (const WrittenPeak& peak : list.peaks) {
    const WrittenValue value = written_value(peak, facts.sample);
    const bool is_sign = value.kind == ValueKind::sign;
    Table_row row;
    row.cells = {peak.at[0],          peak.at[1],
                 peak.at[2],          is_sign ? (value.text == "n" ? "-" : "+") : value.text,
                 name_of(value.kind), value.note};
    sheet.document.table.rows.push_back(std::move(row));
  }
  return sheet;
}

bool has_changes(const Peaks_sheet& sheet) {
  return has_changes(sheet.document) || sheet.space != sheet.saved_space;
}

bool changed_on_disk(const Peaks_sheet& sheet) {
  return Q_read_text(sheet.path.c_str()) != sheet.on_disk;
}

std::string peaks_sheet_text(const Peaks_sheet& sheet, const Peak_facts& facts) {
  PeaksList list;
  list.space = sheet.space;
  list.notes = sheet.notes;
  const Table& table = sheet.document.table;
  for (long row = 0; row < row_count(table); ++row) {
    if (is_empty(table, row)) continue;
    Written_row written = written_row(table, row, facts);
    if (!written.fault.empty())
      throw Refusal("Peak " + std::to_string(row + 1) + " of '" + sheet.path +
                    "': " + written.fault);
    list.peaks.push_back(std::move(written.peak));
  }
  if (list.peaks.size() > max_peaks)
    throw Refusal("'" + sheet.path + "' would have more than " + std::to_string(max_peaks) +
                  " peaks.");
  return peaks_text(list);
}

void note_saved(Peaks_sheet& sheet, std::string text) {
  sheet.on_disk = std::move(text);
  sheet.saved_space = sheet.space;
  sheet.document.saved_at = sheet.document.undo_steps.size();
}

std::optional<Fault> fault_of_peak(const Peaks_sheet& sheet, const Peak_facts& facts,
                                   const std::vector<bool>& brain, long row, long column) {
  const Table& table = sheet.document.table;
  if (row == HEADER) return column == peak_x ? side_fault(table) : std::nullopt;
  if (is_empty(table, row)) return std::nullopt;
  const Written_row written = written_row(table, row, facts);
  if (!written.fault.empty())
    return written.column == column ? std::optional(Fault{Severity::problem, written.fault})
                                    : std::nullopt;
  if (column == peak_x) return place_fault(sheet, brain, row);
  if (column == peak_value) return threshold_fault(written.peak, facts);
  return std::nullopt;
}

std::string space_doubt(const Peaks_sheet& sheet, const std::vector<bool>& brain) {
  if (brain.empty()) return "";
  const Space other = sheet.space == Space::talairach ? Space::mni : Space::talairach;
  const std::size_t here = outside(sheet, sheet.space, brain), there = outside(sheet, other, brain);
  if (here < there + CLEARLY) return "";
  return Q_counted(here, "peak lies", "peaks lie") + " outside of the brain; in " + name_of(other) +
         " space " + (there == 0 ? "none" : Q_count_text(there)) + " would.";
}

std::vector<Drawn_peak> drawn_peaks(const Peaks_sheet& sheet) {
  std::vector<Drawn_peak> peaks;
  const Table& table = sheet.document.table;
  for (long row = 0; row < row_count(table); ++row)
    if (const auto mm = place_of(table, row)) {
      const std::string value = text_at(table, row, peak_value);
      peaks.push_back({in_mni(*mm, sheet.space), !value.starts_with('-') && value != "n", row});
    }
  return peaks;
}

}  // namespace kvo::edit
