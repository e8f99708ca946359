#include "engine/formats/foreign.h"

#include <cmath>
#include <map>

#include "engine/base/text_file.h"
#include "engine/formats/foreign_text.h"
#include "engine/studies/study_rules.h"
#include "util/text.h"

namespace kvo::formats {

namespace {

/// What becomes of one study, with counts for the remarks.
struct Settled {
  NewStudy study;
  std::size_t unconverted = 0, changed_cells = 0;
  std::optional<std::string> fault;
  bool lacks_space = false;
};

std::string_view value_of(const std::vector<NamedText>& values, std::string_view column) {
  for (const auto& [name, value] : values)
    if (name == column) return value;
  return "";
}

constexpr std::size_t longest_note = 1000;  // bytes

/// A comment line of the peaks file, made from any text so that it never names a space.
std::string fit_note(std::string_view text) {
  std::string note = one_line(text);
  if (bare_word(note.substr(0, note.find(':'))) == "space" && note.find(':') != note.npos)
    note.insert(0, "note: ");
  return cut_at_character(std::move(note), longest_note);
}

/// A cell of the study table, made from any text.
std::string fit_cell(std::string_view text) {
  std::string cell;
  for (const char c : Q_trimmed(text)) cell += c == ' ' || c == ',' || Q_is_control(c) ? '_' : c;
  return cell.empty() ? missing_value : cell;
}

void settle_values(const ForeignStudy& from, Settled& to) {
  for (const auto& [column, text] : from.values) {
    const std::string plain = fit_cell(text);
    to.changed_cells += plain != text && !text.empty() ? 1 : 0;
    if (std::string name = fit_name(column); !name.empty())
      to.study.values.emplace_back(std::move(name), plain);
  }
  const SizeCells sizes{value_of(to.study.values, "n1"), value_of(to.study.values, "n2")};
  for (const auto& [column, text] : to.study.values)
    if (const auto fault = is_missing(text) ? std::nullopt : value_fault(column, text, sizes)) {
      std::string what = column + " of study '" + from.name;
      to.fault = what.append("' is '").append(text).append("', ").append(*fault);
      return;
    }
}

/// Where a height cannot be converted, its sign is kept, and the original beside it.
bool settle_height(const ForeignPeak& from, std::optional<Sample> sample, WrittenPeak& to,
                   Settled& study) {
  const bool as_it_is = from.kind == ValueKind::t || from.kind == ValueKind::sign;
  if (sample || as_it_is) return set_height(to, from.kind, from.value, sample.value_or(Sample{}));
  const std::optional<double> number = number_of(from.value);
  if (!from.value.empty() && !number) return false;
  to.height = number.value_or(1) < 0 ? "n" : "p";
  if (number) {
    to.comment = std::string(name_of(from.kind)) + " " + from.value +
                 (to.comment.empty() ? "" : "  " + to.comment);
    ++study.unconverted;
  }
  return true;
}

void settle_peaks(const ForeignStudy& from, Settled& to) {
  const std::optional<Sample> sample = sample_of(to.study);
  PeaksList& list = to.study.peaks;
  for (const std::string& note : from.notes) list.notes.push_back(fit_note(note));
  if (list.notes.empty() && to.study.name != from.name) list.notes.push_back(fit_note(from.name));
  for (const ForeignPeak& peak : from.peaks) {
    const std::string where =
        "study '" + from.name + "'" + (peak.line > 0 ? ", line " + std::to_string(peak.line) : "");
    for (const std::string& mm : peak.at)
      if (const auto number = number_of(mm); !number || std::abs(*number) > max_peak_mm) {
        std::string what = "the coordinate '" + mm;
        what.append("' of ").append(where);
        to.fault = what + " is not a number of mm from -200 to 200";
        return;
      }
    WrittenPeak written{peak.at, "", fit_note(peak.note)};
    if (!settle_height(peak, sample, written, to)) {
      to.fault = "the value '" + peak.value + "' of " + where + " cannot be a " +
                 name_of(peak.kind) + (peak.kind == ValueKind::sign ? "" : " value");
      return;
    }
    list.peaks.push_back(std::move(written));
  }
  if (list.peaks.size() > max_peaks)
    to.fault = "study '" + from.name + "' has more than " + std::to_string(max_peaks) + " peaks";
}

Settled settled(const ForeignStudy& from, Space space) {
  Settled to;
  to.study.name = fit_name(from.name);
  to.study.peaks.space = from.space == Space::unknown ? space : from.space;
  if (from.peaks.empty() && to.study.peaks.space == Space::unknown)
    to.study.peaks.space = Space::mni;
  settle_values(from, to);
  if (const char* fault = Q_name_fault(to.study.name))
    to.fault = "the study's name '" + from.name + "' " + fault;
  if (!to.fault) settle_peaks(from, to);
  to.lacks_space = to.study.peaks.space == Space::unknown;
  return to;
}

void check_names(const ForeignStudies& foreign, const std::vector<Settled>& studies,
                 const std::string& path) {
  std::map<std::string_view, std::size_t> first;
  for (std::size_t i = 0; i < studies.size(); ++i) {
    const auto [before, is_new] = first.try_emplace(studies[i].study.name, i);
    if (is_new) continue;
    const ForeignStudy &one = foreign.studies[before->second], &other = foreign.studies[i];
    throw Refusal("'" + path + "', " + other.place + ": there is already a study '" +
                  studies[i].study.name + "', in " + one.place + ".");
  }
}

}  // namespace

std::optional<Sample> sample_of(const NewStudy& study) {
  const std::string_view n1 = value_of(study.values, "n1"), n2 = value_of(study.values, "n2");
  if (is_missing(n1)) return std::nullopt;
  return Sample{int(number_of(n1).value_or(0)), int(number_of(n2).value_or(0))};
}

std::string original_name(const NewStudy& study) {
  const std::vector<std::string>& notes = study.peaks.notes;
  return !notes.empty() && fit_name(notes[0]) == study.name ? notes[0] : study.name;
}

std::string fit_name(std::string_view text) {
  constexpr std::string_view unfit = " ,=+\"'";
  std::string name;
  for (const char c : Q_trimmed(text)) {
    const char plain = c == '/' ? '-' : unfit.find(c) != unfit.npos || Q_is_control(c) ? '_' : c;
    if (plain != '_' || !name.ends_with('_')) name += plain;
  }
  // A full stop would hide the file, and a hyphen would turn its name into an option.
  while (name.starts_with('.') || name.starts_with('-')) name.erase(0, 1);
  return cut_at_character(std::move(name), Q_NAME_MAX);
}

NewStudies new_studies(ForeignStudies foreign, const std::string& path, Space space) {
  if (foreign.studies.empty()) throw Refusal("'" + path + "' holds no studies.");
  std::vector<Settled> studies(foreign.studies.size());
  for (std::size_t i = 0; i < studies.size(); ++i) studies[i] = settled(foreign.studies[i], space);
  for (std::size_t i = 0; i < studies.size(); ++i)
    if (studies[i].fault)
      throw Refusal("'" + path + "', " + foreign.studies[i].place + ": " + *studies[i].fault + ".");
  check_names(foreign, studies, path);
  for (std::size_t i = 0; i < studies.size(); ++i)
    if (studies[i].lacks_space)
      throw UnknownSpace("'" + path + "', " + foreign.studies[i].place +
                         ": nothing says whether the coordinates of study '" +
                         foreign.studies[i].name +
                         "' are in MNI or Talairach space: please give the space with the command, "
                         "after a comma.");
  NewStudies result{{}, std::move(foreign.remarks), 0};
  std::size_t unconverted = 0, changed_cells = 0, without_size = 0;
  for (Settled& one : studies) {
    unconverted += one.unconverted;
    changed_cells += one.changed_cells;
    without_size += is_missing(value_of(one.study.values, "n1")) ? 1 : 0;
    result.peaks += one.study.peaks.peaks.size();
    result.studies.push_back(std::move(one.study));
  }
  const auto remark = [&](std::size_t count, const std::string& text) {
    if (count > 0) result.remarks.push_back(text);
  };
  remark(without_size, Q_counted(without_size, "study says", "studies say") +
                           " nothing of the sample's size: please fill in n1.");
  remark(unconverted, Q_counted(unconverted, "height", "heights") +
                          " of studies without sample size cannot become t values: the sign is "
                          "kept, and the number as a comment.");
  remark(changed_cells, "Blanks and commas became '_' in " +
                            Q_counted(changed_cells, "value", "values") + " of the table.");
  return result;
}

}  // namespace kvo::formats
