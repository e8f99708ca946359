#include "engine/formats/nimads.h"

#include <map>
#include <nlohmann/json.hpp>
#include <set>

#include "engine/base/refusal.h"
#include "engine/base/text_file.h"
#include "engine/formats/foreign_text.h"
#include "engine/studies/study_rules.h"
#include "util/text.h"

namespace kvo::formats {

namespace {

using Json = nlohmann::ordered_json;

/// Tells an analysis without peaks from one with peaks that nobody has entered.
constexpr const char* found_nothing_key = "found_nothing";

/// The member of that name; null when there is none.
const Json& member(const Json& object, const char* name) {
  static const Json none;
  if (!object.is_object()) return none;
  const auto found = object.find(name);
  return found == object.end() ? none : *found;
}

/// A text or number as a text; "" for anything else.
std::string text_in(const Json& value) {
  if (value.is_string()) return one_line(value.get_ref<const std::string&>());
  if (value.is_number_float()) return text_of(value.get<double>());
  return value.is_number() || value.is_boolean() ? value.dump() : "";
}

/// The analyses that some annotation includes.
std::set<std::string> included_analyses(const Json& root) {
  std::set<std::string> included;
  for (const Json& annotation : member(root, "annotations"))
    for (const Json& note : member(annotation, "notes")) {
      const Json& include = member(member(note, "note"), "include");
      if (include.is_boolean() && include.get<bool>())
        included.insert(text_in(member(note, "analysis")));
    }
  return included;
}

struct ChosenAnalysis {
  const Json* analysis = nullptr;
  std::size_t with_points = 0;
};

ChosenAnalysis chosen_analysis(const Json& study, const std::set<std::string>& included) {
  ChosenAnalysis chosen;
  bool by_annotation = false;
  for (const Json& analysis : member(study, "analyses")) {
    const bool found_nothing = member(member(analysis, "metadata"), found_nothing_key) == true;
    if (member(analysis, "points").empty() && !found_nothing) continue;
    ++chosen.with_points;
    const bool wanted = included.contains(text_in(member(analysis, "id")));
    if (chosen.analysis == nullptr || (wanted && !by_annotation)) chosen.analysis = &analysis;
    by_annotation |= wanted;
  }
  return chosen;
}

/// "Smith 2004" where authors and year are known, else the study's name.
std::string name_in(const Json& study) {
  const std::string authors = text_in(member(study, "authors")),
                    year = text_in(member(study, "year"));
  const std::string name = text_in(member(study, "name"));
  if (authors.empty() || year.empty()) return name.empty() ? text_in(member(study, "id")) : name;
  const std::string first = authors.substr(0, authors.find_first_of(",;"));
  return std::string(Q_words(first).empty() ? first : Q_words(first).front()) + " " + year;
}

void read_sizes(const Json& from, ForeignStudy& study) {
  const Json& sizes = member(from, "sample_sizes");
  const Json& size = member(from, "sample_size");
  if (sizes.is_array() && !sizes.empty()) {
    study.values.emplace_back("n1", text_in(sizes[0]));
    if (sizes.size() == 2) study.values.emplace_back("n2", text_in(sizes[1]));
  } else if (!size.is_null()) {
    study.values.emplace_back("n1", text_in(size));
  }
}

void read_value(const Json& point, ForeignPeak& peak) {
  for (const Json& value : member(point, "values")) {
    const std::string kind = bare_word(text_in(member(value, "kind"))),
                      text = text_in(member(value, "value"));
    const auto known = value_kind_named(kind.substr(0, kind.find("stat")));
    if (!known || text.empty()) continue;
    peak.kind = *known;
    peak.value = text;
    return;
  }
}

void read_points(const Json& analysis, const std::string& place, ForeignStudy& study) {
  for (const Json& point : member(analysis, "points")) {
    const Json& at = member(point, "coordinates");
    ForeignPeak peak;
    if (!at.is_array() || at.size() != 3)
      throw Refusal(place + ": a point has no three coordinates.");
    for (std::size_t axis = 0; axis < 3; ++axis) peak.at[axis] = text_in(at[axis]);
    const Space space = space_called(text_in(member(point, "space")));
    if (space != Space::unknown && study.space != Space::unknown && space != study.space)
      throw Refusal(place + ": points of one analysis are in two spaces.");
    if (space != Space::unknown) study.space = space;
    read_value(point, peak);
    peak.note = text_in(member(point, "label"));
    study.peaks.push_back(std::move(peak));
  }
}

void read_facts(const Json& from, const Json& analysis, ForeignStudy& study) {
  read_sizes(member(from, "metadata"), study);
  if (study.values.empty()) read_sizes(member(analysis, "metadata"), study);
  for (const auto& [key, value] : member(from, "metadata").items())
    if (key != "sample_size" && key != "sample_sizes" && !text_in(value).empty())
      study.values.emplace_back(key, text_in(value));
  for (const char* key : {"doi", "pmid"})
    if (const std::string text = text_in(member(from, key)); !text.empty())
      study.values.emplace_back(key, text);
}

/// Adds letters to the names of studies with the same name, such as two papers by one author in one
/// year: "Smith 2004", "Smith 2004b".
void tell_apart(ForeignStudies& read) {
  std::map<std::string, int> seen;
  std::size_t renamed = 0;
  for (ForeignStudy& study : read.studies)
    if (const int before = seen[fit_name(study.name)]++; before > 0) {
      study.name += before < 25 ? std::string(1, char('a' + before)) : "_" + std::to_string(before);
      ++renamed;
    }
  if (renamed > 0)
    read.remarks.push_back(Q_counted(renamed, "study has", "studies have") +
                           " the name of another: a letter tells them apart.");
}

Json point_of(const WrittenPeak& peak, Space space, std::optional<Sample> sample) {
  Json at = Json::array();
  for (const std::string& mm : peak.at) at.push_back(number_of(mm).value_or(0));
  Json values = Json::array();
  const WrittenValue value = written_value(peak, sample);
  Json one = Json::object();
  one["kind"] = name_of(value.kind);
  if (const auto number = number_of(value.text))
    one["value"] = *number;
  else
    one["value"] = value.text;
  values.push_back(one);
  Json point = Json::object();
  point["coordinates"] = at;
  point["space"] = name_of(space);
  point["values"] = values;
  if (!value.note.empty()) point["label"] = value.note;
  return point;
}

Json study_json(const NewStudy& study) {
  Json sizes = Json::array(), metadata = Json::object(), points = Json::array();
  for (const auto& [column, value] : study.values) {
    if (is_missing(value)) continue;
    if (column == "n1" || column == "n2")
      sizes.push_back(int(number_of(value).value_or(0)));
    else
      metadata[column] = value;
  }
  if (!sizes.empty()) metadata["sample_sizes"] = sizes;
  for (const WrittenPeak& peak : study.peaks.peaks)
    points.push_back(point_of(peak, study.peaks.space, sample_of(study)));
  Json analysis = Json::object();
  analysis["id"] = study.name + "_1";
  analysis["name"] = study.name;
  if (points.empty()) analysis["metadata"][found_nothing_key] = true;
  analysis["points"] = points;
  Json result = Json::object(), analyses = Json::array();
  analyses.push_back(analysis);
  result["id"] = study.name;
  result["name"] = original_name(study);
  result["metadata"] = metadata;
  result["analyses"] = analyses;
  return result;
}

}  // namespace

ForeignStudies nimads_studies(const std::string& path, const std::string& text) {
  Json root;
  try {
    root = Json::parse(text);
  } catch (const Json::exception& fault) {
    throw Refusal("'" + path + "' is not JSON: " + one_line(fault.what()) + ".");
  }
  if (!member(root, "studies").is_array())
    throw Refusal("'" + path + "' is no study set: it has no list of 'studies'.");
  const std::set<std::string> included = included_analyses(root);
  ForeignStudies read;
  std::size_t chosen_of_several = 0, without_points = 0, number = 0;
  for (const Json& from : member(root, "studies")) {
    const std::string place = "study " + std::to_string(++number);
    std::string where = "'" + path;
    where.append("', ").append(place);
    const ChosenAnalysis chosen = chosen_analysis(from, included);
    if (chosen.analysis == nullptr) {
      ++without_points;
      continue;
    }
    ForeignStudy study;
    study.name = name_in(from);
    study.place = place;
    read_facts(from, *chosen.analysis, study);
    read_points(*chosen.analysis, where, study);
    chosen_of_several += chosen.with_points > 1 ? 1 : 0;
    read.studies.push_back(std::move(study));
  }
  if (chosen_of_several > 0)
    read.remarks.push_back(
        Q_counted(chosen_of_several, "study has", "studies have") +
        " several analyses: the one that an annotation includes, else the first, "
        "is taken.");
  if (without_points > 0)
    read.remarks.push_back(Q_counted(without_points, "study", "studies") +
                           " without points are left out.");
  tell_apart(read);
  return read;
}

std::string nimads_text(const std::vector<NewStudy>& studies) {
  Json list = Json::array();
  for (const NewStudy& study : studies) list.push_back(study_json(study));
  Json root = Json::object();
  root["id"] = "kvo";
  root["name"] = "Studies of a Quorvane meta-analysis";
  root["studies"] = list;
  return root.dump(1, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace kvo::formats
