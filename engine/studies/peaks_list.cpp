#include "engine/studies/peaks_list.h"

#include <glib.h>

#include <algorithm>
#include <cmath>
#include <optional>

#include "engine/base/refusal.h"
#include "engine/base/text_file.h"
#include "engine/studies/effect_size.h"
#include "util/text.h"

namespace kvo::studies {

namespace {

constexpr std::string_view space_key = "space:";

bool begins_ignoring_case(std::string_view text, std::string_view beginning) {
  return text.size() >= beginning.size() &&
         g_ascii_strncasecmp(text.data(), beginning.data(), beginning.size()) == 0;
}

/// Reads one peaks file; the list is what has been read so far.
struct ListReader {
  const std::string& path;
  PeaksList list;

  [[noreturn]] void refuse(const TextLine& line, const std::string& what) const {
    throw Refusal(at_line(path, line.number) + what + ".");
  }

  /// Whether the comment names the space.
  bool read_space(const TextLine& line, std::string_view comment) {
    if (!begins_ignoring_case(comment, space_key)) return false;
    const std::string name(Q_stripped(comment.substr(space_key.size())));
    const Space named = space_named(name);
    if (named == Space::unknown)
      refuse(line, "the space '" + name + "' is neither MNI nor Talairach");
    if (list.space != Space::unknown && list.space != named)
      refuse(line, "a second space is given");
    list.space = named;
    return true;
  }

  void check_peak(const TextLine& line, const std::vector<std::string_view>& cells) const {
    if (cells.size() != 4)
      refuse(line,
             "there are " + std::to_string(cells.size()) + " numbers; a peak has four: x y z t");
    for (int axis = 0; axis < 3; ++axis) {
      const std::string_view cell = cells[std::size_t(axis)];
      const std::optional<double> mm = number_of(cell);
      if (!mm || std::abs(*mm) > max_peak_mm)
        refuse(line,
               "the coordinate '" + std::string(cell) + "' is not a number of mm from -200 to 200");
    }
    const std::optional<double> t = number_of(cells[3]);
    if (cells[3] != "p" && cells[3] != "n" && (!t || std::abs(*t) > max_t))
      refuse(line, "the height '" + std::string(cells[3]) +
                       "' is neither a t value from -10000 to 10000 nor 'p' or 'n'");
    if (list.peaks.size() == max_peaks)
      refuse(line, "there are more than " + std::to_string(max_peaks) + " peaks");
  }

  void read_peak(const TextLine& line, std::string_view text, std::string_view comment) {
    std::string blanks(text);
    std::replace(blanks.begin(), blanks.end(), ',', ' ');
    const std::vector<std::string_view> cells = Q_words(blanks);
    // "1,5 -14 6" would pass for four numbers.
    const auto commas = std::count(text.begin(), text.end(), ',');
    if (commas != 0 && commas != 3)
      refuse(line,
             "commas stand neither between all numbers nor between none; decimals are "
             "written with a full stop");
    check_peak(line, cells);
    list.peaks.push_back({{std::string(cells[0]), std::string(cells[1]), std::string(cells[2])},
                          std::string(cells[3]),
                          std::string(comment),
                          line.number});
  }

  void read_line(const TextLine& line) {
    const std::size_t mark = line.text.find('#');
    const bool commented = mark != std::string_view::npos;
    const std::string_view comment = commented ? Q_stripped(line.text.substr(mark + 1)) : "";
    const std::string_view peak = Q_stripped(line.text.substr(0, mark));
    const bool has_space = commented && read_space(line, comment);
    if (!peak.empty())
      read_peak(line, peak, comment);
    else if (!has_space && !comment.empty())
      list.notes.emplace_back(comment);
  }
};

}  // namespace

PeaksList peaks_list_of(const std::string& path, std::string_view text) {
  ListReader reader{path, {}};
  for (const TextLine& line : filled_lines(text)) reader.read_line(line);
  if (reader.list.space == Space::unknown)
    throw Refusal("'" + path + "' has no line '# space: MNI' or '# space: Talairach'.");
  return std::move(reader.list);
}

std::string peaks_text(const PeaksList& list) {
  std::string text = std::string("# space: ") + name_of(list.space) + "\n";
  for (const std::string& note : list.notes) text += "# " + note + "\n";
  for (const WrittenPeak& peak : list.peaks) {
    for (const std::string& mm : peak.at) text.append(mm).append(" ");
    text += peak.height;
    if (!peak.comment.empty()) text.append("  # ").append(peak.comment);
    text += '\n';
  }
  return text;
}

Space space_named(std::string_view name) {
  for (const Space space : {Space::mni, Space::talairach})
    if (name.size() == std::string_view(name_of(space)).size() &&
        begins_ignoring_case(name, name_of(space)))
      return space;
  return Space::unknown;
}

const char* name_of(Space space) {
  return space == Space::talairach ? "Talairach" : "MNI";
}

}  // namespace kvo::studies
