#pragma once

// The peaks of a study as the editor shows them: a table of texts with its history, and what is
// wrong with them.

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "companions/kvo_edit/checks.h"
#include "companions/kvo_edit/document.h"
#include "engine/studies/peak_value.h"
#include "engine/studies/peaks_list.h"

namespace kvo::edit {

/// The columns of the table.
enum Peak_column : long { peak_x, peak_y, peak_z, peak_value, peak_kind, peak_comment };

struct Peaks_sheet {
  std::string path;
  Document document;
  Space space = Space::mni, saved_space = Space::mni;
  std::vector<std::string> notes;      ///< comment lines of the file
  std::optional<std::string> on_disk;  ///< the file's content when last read or written
};

/// What the study table says of the study, as far as its peaks depend on it.
struct Peak_facts {
  std::optional<Sample> sample;
  std::optional<double> threshold_t;  ///< what no peak of the study may be below
};

/// The facts of a row of the study table; those that are not as they should be are left out.
Peak_facts peak_facts_of(const Check_index& index, const Table& table, long row);

/// The peaks of a file; none where there is no file. Throws Refusal when it is not as it should be.
Peaks_sheet open_peaks_sheet(const std::string& path, const Peak_facts& facts);

bool has_changes(const Peaks_sheet& sheet);
/// Whether another program has changed, made or removed the file since it was read or written here.
bool changed_on_disk(const Peaks_sheet& sheet);

/// What the file will hold. Throws Refusal, naming the peak, when a cell is not as it should be.
std::string peaks_sheet_text(const Peaks_sheet& sheet, const Peak_facts& facts);

/// Takes note that the file now holds that text.
void note_saved(Peaks_sheet& sheet, std::string text);

/// What is wrong with a cell, or with all peaks (row HEADER). The mask says where the brain is; it
/// may be empty.
std::optional<Fault> fault_of_peak(const Peaks_sheet& sheet, const Peak_facts& facts,
                                   const std::vector<bool>& brain, long row, long column);

/// Why the space may be the other one, as a sentence; "" when nothing speaks for that.
std::string space_doubt(const Peaks_sheet& sheet, const std::vector<bool>& brain);

/// A peak as it is drawn: where it is in MNI space, and its direction.
struct Drawn_peak {
  std::array<double, 3> mm;
  bool positive = true;
  long row = 0;
};
/// The peaks whose coordinates are numbers.
std::vector<Drawn_peak> drawn_peaks(const Peaks_sheet& sheet);

}  // namespace kvo::edit
