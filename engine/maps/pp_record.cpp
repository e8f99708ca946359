#include "engine/maps/pp_record.h"

#include <charconv>
#include <cmath>
#include <optional>

#include "engine/base/exists.h"
#include "engine/base/refusal.h"
#include "engine/base/text_file.h"
#include "engine/base/wording.h"
#include "engine/studies/study_rules.h"
#include "util/text.h"
#include "workspace/files/file_names.h"

namespace kvo::maps {

namespace {

constexpr const char* checksum_key = "checksum of ";
constexpr const char* study_key = "study ";
constexpr double max_randomizations = 1e6;

using Lines = std::map<std::string, std::string>;

Lines read_lines() {
  Lines lines;
  const std::string text = read_text(KVO_RECORD_FILE);
  for (const TextLine& line : filled_lines(text)) {
    const std::size_t equals = line.text.find(" = ");
    if (equals == std::string_view::npos)
      throw Refusal(at_line(KVO_RECORD_FILE, line.number) + "there is no ' = '.");
    lines.emplace(Q_stripped(line.text.substr(0, equals)),
                  Q_stripped(line.text.substr(equals + 3)));
  }
  return lines;
}

const std::string& value_of(const Lines& lines, const std::string& key) {
  const auto found = lines.find(key);
  if (found == lines.end())
    throw Refusal("'" + std::string(KVO_RECORD_FILE) + "' has no line '" + key +
                  "'. Please run preprocessing again.");
  return found->second;
}

[[noreturn]] void refuse_value(const std::string& key, const std::string& value) {
  throw Refusal("'" + std::string(KVO_RECORD_FILE) + "': '" + value + "' cannot be the " + key +
                ". Please run preprocessing again.");
}

double number_in(const Lines& lines, const std::string& key, double least, double most) {
  const std::string& value = value_of(lines, key);
  const std::optional<double> number = number_of(value);
  if (!number || *number < least || *number > most) refuse_value(key, value);
  return *number;
}

std::string name_in(const Lines& lines, const std::string& key) {
  const std::string& value = value_of(lines, key);
  if (Q_name_fault(value) != nullptr) refuse_value(key, value);
  return value;
}

std::uint64_t seed_in(const Lines& lines) {
  const std::string& value = value_of(lines, "seed");
  std::uint64_t seed = 0;
  const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), seed);
  if (error != std::errc() || end != value.data() + value.size()) refuse_value("seed", value);
  return seed;
}

void add_line(std::string& text, std::string_view key, std::string_view value) {
  text.append(key).append(" = ").append(value).append("\n");
}

}  // namespace

std::string PpRecord::text() const {
  std::string text;
  add_line(text, "template", correlation_template);
  add_line(text, "anisotropy", text_of(anisotropy));
  add_line(text, "fwhm", text_of(fwhm));
  add_line(text, "mask", mask);
  add_line(text, "randomizations", std::to_string(randomizations));
  add_line(text, "seed", std::to_string(seed));
  add_line(text, "version", version_text());
  for (const auto& [study, facts] : studies) add_line(text, study_key + study, facts);
  for (const auto& [file, sum] : checksums) add_line(text, checksum_key + file, sum);
  return text;
}

std::string table_facts(const Study& study) {
  const auto [n1, n2] = study.sample;
  return "n1 " + std::to_string(n1) + ", n2 " + (n2 > 0 ? std::to_string(n2) : missing_value) +
         ", threshold_t " + (study.threshold_t ? text_of(*study.threshold_t) : missing_value) +
         (study.threshold_p ? ", threshold_p " + text_of(*study.threshold_p) : "");
}

PpRecord read_pp_record() {
  if (!path_exists(KVO_RECORD_FILE))
    throw Refusal("No maps found. Please run preprocessing and try again.");
  const Lines lines = read_lines();
  PpRecord record;
  record.correlation_template = name_in(lines, "template");
  record.mask = name_in(lines, "mask");
  record.anisotropy = number_in(lines, "anisotropy", 0, 1);
  record.fwhm = number_in(lines, "fwhm", 0.1, 1000);
  const double randomizations = number_in(lines, "randomizations", 1, max_randomizations);
  if (randomizations != std::floor(randomizations))
    refuse_value("randomizations", text_of(randomizations));
  record.randomizations = std::size_t(randomizations);
  record.seed = seed_in(lines);
  for (const auto& [key, value] : lines) {
    if (key.starts_with(checksum_key))
      record.checksums[key.substr(std::string_view(checksum_key).size())] = value;
    else if (key.starts_with(study_key))
      record.studies[key.substr(std::string_view(study_key).size())] = value;
  }
  return record;
}

}  // namespace kvo::maps
