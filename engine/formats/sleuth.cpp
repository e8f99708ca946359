#include "engine/formats/sleuth.h"

#include <algorithm>

#include "engine/base/refusal.h"
#include "engine/base/text_file.h"
#include "engine/formats/foreign_text.h"
#include "engine/images/talairach.h"
#include "engine/studies/study_rules.h"
#include "util/q_string.h"
#include "util/text.h"

namespace kvo::formats {

namespace {

struct SleuthReader {
  const std::string& path;
  ForeignStudies read;
  Space space = Space::unknown;
  bool in_head = false;  ///< in the comments before a study's coordinates
  std::size_t without_lines = 0;

  void begin_study(std::size_t line) {
    if (in_head) return;
    in_head = true;
    ForeignStudy study;
    study.space = space;
    study.place = "line " + std::to_string(line);
    read.studies.push_back(std::move(study));
  }

  void read_comment(const TextLine& line, std::string_view comment) {
    const std::size_t equals = comment.find('=');
    const std::string key = bare_word(comment.substr(0, equals));
    const std::string_view value =
        equals == std::string_view::npos ? "" : Q_stripped(comment.substr(equals + 1));
    if (key == "reference" && equals != std::string_view::npos) {
      space = space_called(value);
      if (space == Space::unknown)
        throw Refusal(at_line(path, line.number) + "the reference '" + std::string(value) +
                      "' is neither MNI nor Talairach.");
      if (in_head) read.studies.back().space = space;
      return;
    }
    begin_study(line.number);
    ForeignStudy& study = read.studies.back();
    if (key == "subjects" && equals != std::string_view::npos) {
      study.values.emplace_back("n1", value);
    } else {
      if (study.name.empty()) study.name = comment;
      study.notes.emplace_back(comment);
    }
  }

  void read_peak(const TextLine& line) {
    std::string blanks(line.text);
    std::replace(blanks.begin(), blanks.end(), ',', ' ');
    const std::vector<std::string_view> words = Q_words(blanks);
    if (words.size() != 3 && words.size() != 4)
      throw Refusal(at_line(path, line.number) +
                    "this is neither a comment after '//' nor three coordinates.");
    if (read.studies.empty())
      throw Refusal(at_line(path, line.number) +
                    "coordinates stand before the first study, which a line '// name' begins.");
    in_head = false;
    ForeignPeak peak;
    for (std::size_t axis = 0; axis < 3; ++axis) peak.at[axis] = plain_number(words[axis], false);
    if (words.size() == 4) {
      peak.kind = ValueKind::t;
      peak.value = plain_number(words[3], false);
    }
    peak.line = line.number;
    read.studies.back().peaks.push_back(std::move(peak));
  }
};

/// A coordinate as it is, or in MNI space to two decimals.
std::string mni_text(const WrittenPeak& peak, Space space) {
  if (space != Space::talairach) return peak.at[0] + "\t" + peak.at[1] + "\t" + peak.at[2];
  Eigen::Vector3d mm;
  for (std::size_t axis = 0; axis < 3; ++axis)
    mm[Eigen::Index(axis)] = number_of(peak.at[axis]).value();
  mm = mni_of_talairach(mm);
  return Q_format("%.2f\t%.2f\t%.2f", mm[0], mm[1], mm[2]).str();
}

}  // namespace

ForeignStudies sleuth_studies(const std::string& path, std::string_view text) {
  SleuthReader reader{path, {}};
  for (const TextLine& line : filled_lines(text)) {
    const std::string_view content = Q_stripped(line.text);
    const bool comment = content.starts_with("//");
    const std::string_view rest = Q_stripped(content.substr(comment ? 2 : 0));
    if (rest.empty()) continue;
    if (comment)
      reader.read_comment(line, rest);
    else
      reader.read_peak(line);
  }
  for (ForeignStudy& study : reader.read.studies)
    if (study.name.empty())
      throw Refusal("'" + path + "', " + study.place + ": the study has no name.");
  reader.read.remarks.emplace_back(
      "Subjects count as one sample: where a study compares two, please put in n1 and n2.");
  return std::move(reader.read);
}

std::string sleuth_text(const std::vector<NewStudy>& studies) {
  std::string text = "// Reference=MNI\n";
  for (const NewStudy& study : studies) {
    text += "\n";
    const std::vector<std::string>& notes = study.peaks.notes;
    if (notes.empty() || notes[0] != original_name(study)) text += "// " + study.name + "\n";
    for (const std::string& note : notes) text += "// " + note + "\n";
    int people = 0;
    for (const auto& [column, value] : study.values)
      if (column == "n1" || column == "n2") people += int(number_of(value).value_or(0));
    if (people > 0) text += "// Subjects=" + std::to_string(people) + "\n";
    for (const WrittenPeak& peak : study.peaks.peaks)
      text += mni_text(peak, study.peaks.space) + "\n";
  }
  return text;
}

}  // namespace kvo::formats
