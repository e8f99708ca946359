#pragma once

// The studies that took part in an analysis, as a report lists them: what each gives, and the
// columns of the study table that identify it.

#include <span>
#include <string>
#include <vector>

#include "engine/report/explorer.h"
#include "engine/report/html.h"
#include "engine/results/results_layer.h"
#include "engine/studies/study.h"

namespace kvo::results {

/// What a study gives: "12 peaks" or "image", and in which space the coordinates or voxels are, if
/// they have any.
struct StudyData {
  std::string given, space;
};

/// What the file of a study says, and its peaks as an explorer shows them.
struct KnownStudy {
  StudyData data;
  ExploredStudy explored;
  bool talairach = false, unknown_heights = false;
};

/// Reads the peaks of a study, or of which space its image is. Throws Refusal as read_peaks() and
/// read_space() do.
KnownStudy read_known_study(const Study& study, bool has_image);

/// How many took part: "12", or "12 + 14" of two groups.
std::string sample_text(const Sample& sample);

/// A line for each of the chosen studies, with one of `data` each, and a caption that says how many
/// of the table they are. Columns of the table with a name such as doi, pmid, authors, contrast or
/// note are shown where some study has a value; DOIs and PMIDs lead to their papers.
HtmlTable study_list(const StudyTable& table, std::span<const std::size_t> chosen,
                     std::span<const StudyData> data);

}  // namespace kvo::results
