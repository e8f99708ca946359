#include "engine/inference/parts.h"

#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <numeric>
#include <system_error>
#include <utility>

#include "engine/base/progress.h"
#include "engine/base/refusal.h"
#include "engine/base/text_file.h"
#include "util/read_file.h"
#include "util/text.h"
#include "util/whole_file.h"

namespace kvo::inference {

namespace {

constexpr std::string_view first_line = "KVO part of randomizations";
constexpr std::string_view between_name_and_part = "_part_", of_parts = "_of_", suffix = ".kvo";
constexpr std::size_t most_parts = 10'000;
constexpr std::size_t largest_file = std::size_t{1} << 30;

/// The text as a whole number above 0; nothing when it is not one.
std::optional<std::size_t> count_of(std::string_view text) {
  std::size_t count = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), count);
  if (error != std::errc() || end != text.data() + text.size() || count == 0) return std::nullopt;
  return count;
}

/// The part that a text such as "2/8" stands for.
std::optional<Part> part_of(std::string_view text, std::string_view separator) {
  const std::size_t middle = text.find(separator);
  if (middle == std::string_view::npos) return std::nullopt;
  const auto number = count_of(text.substr(0, middle)),
             of = count_of(text.substr(middle + separator.size()));
  if (!number || !of || *number > *of || *of > most_parts) return std::nullopt;
  return Part{*number, *of};
}

/// The part of an analysis that a file of that name holds.
std::optional<Part> part_of_file(std::string_view file, const std::string& name) {
  const std::string beginning = name + std::string(between_name_and_part);
  if (!file.starts_with(beginning) || !file.ends_with(suffix)) return std::nullopt;
  file.remove_prefix(beginning.size());
  file.remove_suffix(std::min(file.size(), suffix.size()));
  return part_of(file, of_parts);
}

std::string compressed(const std::string& bytes) {
  uLongf size = compressBound(uLong(bytes.size()));
  std::string body(size, '\0');
  compress2(reinterpret_cast<Bytef*>(body.data()), &size,
            reinterpret_cast<const Bytef*>(bytes.data()), uLong(bytes.size()), Z_BEST_SPEED);
  body.resize(size);
  return body;
}

/// Cuts off the first line of the bytes.
std::string_view take_line(std::string_view& bytes) {
  const std::size_t end = std::min(bytes.find('\n'), bytes.size());
  const std::string_view line = bytes.substr(0, end);
  bytes.remove_prefix(std::min(end + 1, bytes.size()));
  return line;
}

[[noreturn]] void refuse_damaged(const std::string& file) {
  throw Refusal("'" + file + "' is damaged. Please remove it, or have it made again.");
}

/// The tallies of a part; nothing when its key is different.
std::optional<std::vector<Tally>> read_part(const std::string& file, const std::string& key,
                                            std::size_t coefficients) {
  Q_read_fault fault;
  const auto content = Q_read_file(file.c_str(), largest_file, fault);
  if (!content) throw unread(file, fault);
  std::string_view rest = *content;
  if (take_line(rest) != first_line) refuse_damaged(file);
  if (take_line(rest) != key) return std::nullopt;
  const auto size = count_of(take_line(rest));
  const std::string_view checksum = take_line(rest);
  if (!size || *size > largest_file || Q_sha256(rest) != checksum) refuse_damaged(file);
  std::string bytes(*size, '\0');
  uLongf length = *size;
  if (uncompress(reinterpret_cast<Bytef*>(bytes.data()), &length,
                 reinterpret_cast<const Bytef*>(rest.data()), uLong(rest.size())) != Z_OK ||
      length != *size)
    refuse_damaged(file);
  std::vector<Tally> tallies(coefficients);
  std::string_view left = bytes;
  for (Tally& tally : tallies)
    if (!take_tally(left, tally)) refuse_damaged(file);
  if (!left.empty()) refuse_damaged(file);
  return tallies;
}

/// Adds the tallies of a part to the sums, one for each coefficient.
void add_part(std::vector<Tally>& sums, const std::vector<Tally>& tallies,
              const std::string& file) {
  for (std::size_t j = 0; j < sums.size(); ++j) {
    if (!fit_together(sums[j], tallies[j])) refuse_damaged(file);
    add(sums[j], tallies[j]);
  }
}

/// Whether two parts have a randomization in common.
bool overlap(const Part& a, const Part& b) {
  const std::size_t common = std::gcd(a.of, b.of);
  return (a.number - 1) % common == (b.number - 1) % common;
}

}  // namespace

std::optional<Part> asked_part() {
  const char* asked = std::getenv(part_variable);
  if (asked == nullptr || *asked == '\0') return std::nullopt;
  const std::optional<Part> part = part_of(asked, "/");
  if (!part)
    throw Refusal(
        std::string(part_variable) + " is '" + asked +
        "', which is no part of the randomizations such as 1/8, the first of eight, up to 8/8.");
  return part;
}

std::vector<std::size_t> Shared::numbers_to_make(std::size_t all) const {
  std::vector<std::size_t> numbers;
  for (std::size_t r = 0; r < all; ++r)
    if (only ? only->has(r)
             : std::none_of(made.begin(), made.end(),
                            [&](const MadePart& by_others) { return by_others.part.has(r); }))
      numbers.push_back(r);
  return numbers;
}

void Shared::add_others(std::size_t coefficient, Tally& own) const {
  if (made.empty()) return;
  // The parts of others fit each other.
  if (!fit_together(own, tallies[coefficient])) refuse_damaged(made.front().file);
  add(own, tallies[coefficient]);
}

std::string times_text(std::size_t made, std::size_t all) {
  const std::string text = Q_counted(all, "time", "times");
  return made == all ? " (" + text + ")" : " (" + Q_count_text(made) + " of " + text + ")";
}

std::string part_file(const std::string& name, const Part& part) {
  return name + std::string(between_name_and_part) + std::to_string(part.number) +
         std::string(of_parts) + std::to_string(part.of) + std::string(suffix);
}

void write_part(const std::string& name, const Part& part, const std::string& key,
                std::span<const Tally> tallies) {
  std::string bytes;
  for (const Tally& tally : tallies) bytes += bytes_of(tally);
  const std::string body = compressed(bytes), file = part_file(name, part);
  const std::string text = std::string(first_line) + "\n" + key + "\n" +
                           std::to_string(bytes.size()) + "\n" + Q_sha256(body) + "\n" + body;
  if (!Q_write_whole(file.c_str(), text))
    throw Refusal("'" + file + "' cannot be written: " + std::strerror(errno) + ".");
}

Shared read_parts(const std::string& name, const std::string& key, std::size_t coefficients) {
  std::vector<MadePart> found;
  Shared shared;
  std::error_code ignored;
  for (const auto& entry : std::filesystem::directory_iterator(".", ignored)) {
    const std::string file = entry.path().filename();
    if (const auto part = part_of_file(file, name)) found.push_back({*part, file});
  }
  std::sort(found.begin(), found.end(), [](const MadePart& a, const MadePart& b) {
    return std::pair(a.part.of, a.part.number) < std::pair(b.part.of, b.part.number);
  });
  for (const MadePart& made : found) {
    const auto same =
        std::find_if(shared.made.begin(), shared.made.end(),
                     [&](const MadePart& other) { return overlap(made.part, other.part); });
    if (same != shared.made.end()) {
      say("'" + made.file + "' is not used: '" + same->file + "' has some of its randomizations");
      continue;
    }
    auto tallies = read_part(made.file, key, coefficients);
    if (!tallies) {
      say("'" + made.file +
          "' is not used: it is of other studies or settings, or was made by another version");
      continue;
    }
    if (shared.made.empty())
      shared.tallies = std::move(*tallies);
    else
      add_part(shared.tallies, *tallies, made.file);
    shared.made.push_back(made);
  }
  return shared;
}

}  // namespace kvo::inference
