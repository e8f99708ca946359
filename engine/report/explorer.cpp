#include "engine/report/explorer.h"

#include <zlib.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>
#include <map>
#include <stdexcept>

#include "engine/base/wording.h"
#include "engine/report/brain_box.h"
#include "engine/report/colour_scale.h"
#include "engine/report/explorer_script.h"

namespace kvo::report {

namespace {

// What stands for a value that there is not, which no value reaches.
constexpr std::int16_t missing = std::numeric_limits<std::int16_t>::min();
constexpr double hundredths = 100;

/// Rounded as a text with so many decimals is.
std::int16_t rounded(double value, double scale) {
  if (!std::isfinite(value)) return missing;
  const double most = std::numeric_limits<std::int16_t>::max();
  return std::int16_t(std::clamp(std::nearbyint(value * scale), -most, most));
}

/// Differences of neighbours, low bytes before high ones: both repeat themselves more than the
/// values do.
std::string packed(std::span<const std::int16_t> values) {
  std::string bytes(2 * values.size(), '\0');
  std::uint16_t last = 0;
  for (std::size_t i = 0; i < values.size(); ++i) {
    const auto step = std::uint16_t(std::uint16_t(values[i]) - last);
    bytes[i] = char(step & 0xFF);
    bytes[values.size() + i] = char(step >> 8);
    last = std::uint16_t(values[i]);
  }
  uLongf size = compressBound(uLong(bytes.size()));
  std::string out(size, '\0');
  if (compress2(reinterpret_cast<Bytef*>(out.data()), &size,
                reinterpret_cast<const Bytef*>(bytes.data()), uLong(bytes.size()), 6) != Z_OK)
    throw std::runtime_error("a map cannot be compressed");
  out.resize(size);
  return out;
}

std::string attribute(const char* name, const std::string& value) {
  return std::string(" ") + name + "=\"" + html_escaped(value) + "\"";
}

template <typename Numbers>
std::string numbers_text(const Numbers& numbers) {
  std::string text;
  for (const auto number : numbers) text += (text.empty() ? "" : " ") + std::to_string(number);
  return text;
}

/// The markup of the volumes in a box of the grid.
class Volumes {
 public:
  explicit Volumes(const BrainBox& box) {
    for (int k = box.low[2]; k <= box.high[2]; ++k)
      for (int j = box.low[1]; j <= box.high[1]; ++j)
        for (int i = box.low[0]; i <= box.high[0]; ++i)
          voxels_.push_back(mni_grid().index(i, j, k));
  }

  /// Adds what `value` makes of each value of a map, unless the map is empty.
  void add(const char* name, std::span<const float> map,
           const std::function<std::int16_t(float)>& value) {
    if (map.empty()) return;
    std::vector<std::int16_t> values;
    values.reserve(voxels_.size());
    for (const std::size_t voxel : voxels_) values.push_back(value(map[voxel]));
    markup_ += "<script type=\"text/plain\"" + attribute("data-volume", name) + ">" +
               base64(packed(values)) + "</script>\n";
  }

  /// Adds the numbers of texts, which are listed apart. Few of them are different.
  void add_texts(const char* name, const char* list, std::span<const float> map,
                 const std::function<std::string(float)>& text) {
    std::map<float, std::int16_t> known;
    std::map<std::string, std::int16_t> numbers;
    std::vector<std::string> texts;
    add(name, map, [&](float value) {
      if (!std::isfinite(value)) return missing;
      const auto [entry, is_new] = known.try_emplace(value);
      if (!is_new) return entry->second;
      const auto [number, is_new_text] =
          numbers.try_emplace(text(value), std::int16_t(texts.size()));
      if (is_new_text) texts.push_back(number->first);
      return entry->second = number->second;
    });
    markup_ += list_markup(list, texts);
  }

  static std::string list_markup(const char* name, std::span<const std::string> texts) {
    std::string markup = std::string("<ul hidden=\"hidden\"") + attribute("data-part", name) + ">";
    for (const std::string& text : texts) markup += "<li>" + html_escaped(text) + "</li>";
    return markup + "</ul>\n";
  }

  [[nodiscard]] const std::string& markup() const { return markup_; }

 private:
  std::vector<std::size_t> voxels_;
  std::string markup_;
};

std::string place_text(const ExploredPlace& place) {
  const auto number = [](double g) {
    const std::int16_t value = rounded(g, hundredths);
    return value == missing ? std::string("nan") : std::to_string(value);
  };
  std::string text;
  for (const int mm : place.mm) text += std::to_string(mm) + ",";
  text += number(place.g);
  if (place.interval)
    text += "," + number(place.interval->low) + "," + number(place.interval->high);
  return text;
}

std::string study_list(std::span<const ExploredStudy> studies) {
  std::string markup = "<ul hidden=\"hidden\" data-part=\"studies\">\n";
  for (const ExploredStudy& study : studies) {
    std::string places;
    for (const ExploredPlace& place : study.places)
      places += (places.empty() ? "" : ";") + place_text(place);
    markup += "<li" + attribute("data-n", study.sample) + attribute("data-places", places) +
              (study.has_image ? attribute("data-image", "yes") : "") + ">" +
              html_escaped(study.name) + "</li>\n";
  }
  return markup + "</ul>\n";
}

std::string colour_list(bool positive) {
  std::string text;
  for (int level = 0; level < colour_levels; ++level) {
    std::array<char, 8> hex{};
    std::snprintf(hex.data(), hex.size(), "%06x", unsigned(level_colour(level, positive)));
    text += (text.empty() ? "" : " ") + std::string(hex.data());
  }
  return text;
}

struct View {
  const char *name, *axes, *left, *right;
};
constexpr View views[] = {
    {"Sagittal", "1 2 0", "P", "A"}, {"Coronal", "0 2 1", "L", "R"}, {"Axial", "0 1 2", "L", "R"}};

std::string views_markup(bool glass, const BrainBox& box) {
  // The views have one scale: their widths are those of the brain.
  std::string markup = "<div class=\"views\" style=\"--across:" + std::to_string(box.size(1)) +
                       "fr " + std::to_string(box.size(0)) + "fr " + std::to_string(box.size(0)) +
                       "fr\">\n";
  for (const View& view : views) {
    const std::string label =
        std::string(view.name) + (glass ? " glass brain" : " slice") +
        ". Arrow keys move the crosshair, Page Up and Page Down through the slices, with Shift in "
        "larger steps.";
    markup += std::string("<figure><figcaption><b>") + view.left + "</b> " + view.name + " <b>" +
              view.right + "</b></figcaption><canvas tabindex=\"0\" role=\"img\"" +
              attribute("aria-label", label) + attribute("data-axes", view.axes) +
              (glass ? attribute("data-glass", "yes") : "") + "></canvas></figure>\n";
  }
  return markup + "</div>\n";
}

std::string slider(const std::string& name, const std::string& label, int from, int to, int value,
                   const std::string& text) {
  return "<label>" + label + " <input type=\"range\"" + attribute("data-part", name) +
         attribute("min", std::to_string(from)) + attribute("max", std::to_string(to)) +
         attribute("value", std::to_string(value)) + "/> <output" +
         attribute("data-part", name + "-text") + ">" + text + "</output></label>\n";
}

std::string controls(int highest) {
  std::string markup = "<div class=\"controls\">\n" +
                       slider("threshold", "|z| at least", 0, highest, 0, "0.00") +
                       slider("opacity", "Opacity", 0, 100, 100, "100 %") +
                       "<label><input type=\"checkbox\" data-part=\"all\"/> also what does not "
                       "survive the thresholds</label>\n<span>";
  for (const char* axis : {"x", "y", "z"})
    markup += std::string("<label>") + axis +
              " <input type=\"number\" step=\"2\" inputmode=\"text\"" +
              attribute("data-part", std::string("mm-") + axis) + "/></label> ";
  return markup + "mm</span>\n</div>\n";
}

/// The bars of colours, with the values at their ends.
std::string bars(const ColourScale& scale) {
  std::string markup;
  const auto bar = [&](const char* sign, double from, double to) {
    markup += "<span class=\"bar\">z " + decimal_text(from, 2) + " <i" +
              attribute("data-bar", sign) + "></i> " + decimal_text(to, 2) + "</span>\n";
  };
  if (scale.has_negative()) bar("negative", -scale.high(), -scale.low());
  if (scale.has_positive()) bar("positive", scale.low(), scale.high());
  return "<p class=\"bars\">" + markup + "</p>\n";
}

std::string readout(const Explored& explored) {
  std::string markup = "<table class=\"facts\" aria-live=\"polite\"><tbody>\n";
  const auto row = [&](const char* part, const std::string& label, bool there) {
    if (there)
      markup += "<tr><th scope=\"row\">" + html_escaped(label) + "</th><td" +
                attribute("data-part", part) + "></td></tr>\n";
  };
  row("position", "Crosshair", true);
  row("region", "Region", true);
  row("z", "z", true);
  row("p", explored.p_name, !explored.p.empty());
  row("g", "g (95 %)", !explored.effect[0].empty());
  row("info", "Information, of what images of all studies would give", !explored.info.empty());
  return markup + "</tbody></table>\n";
}

std::string studies_part(std::span<const ExploredStudy> studies) {
  if (studies.empty()) return "";
  return "<p class=\"caption\">What the studies have there. <span data-part=\"near-count\"></span>"
         "</p>\n<div class=\"wide\"><table class=\"near\"><thead><tr><th>Study</th><th>n</th>"
         "<th>Here</th><th>g</th><th>line: 0</th></tr></thead>\n<tbody data-part=\"near\"></tbody>"
         "</table></div>\n";
}

Volumes volumes_of(const Explored& explored, std::span<const float> surviving,
                   const BrainBackground& background, const BrainBox& box) {
  Volumes volumes(box);
  const auto in_hundredths = [](float value) { return rounded(double(value), hundredths); };
  volumes.add("z", explored.z, in_hundredths);
  volumes.add("surviving", surviving,
              [](float value) { return std::int16_t(value != 0 && std::isfinite(value)); });
  if (!background.anatomy.empty()) {
    const auto highest =
        double(*std::max_element(background.anatomy.begin(), background.anatomy.end()));
    volumes.add("anatomy", background.anatomy, [&](float value) {
      return highest > 0 ? rounded(std::max(0.0, double(value)), 255 / highest) : std::int16_t(0);
    });
  }
  const std::array<const char*, 3> effect_names = {"g", "low", "high"};
  for (std::size_t n = 0; n < effect_names.size(); ++n)
    volumes.add(effect_names[n], explored.effect[n], in_hundredths);
  volumes.add("info", explored.info, in_hundredths);
  volumes.add_texts("p", "words-of-p", explored.p, [](float p) { return p_text(double(p)); });
  volumes.add_texts("region", "regions", explored.atlas, region_text);
  return volumes;
}

}  // namespace

void add_explorer(HtmlReport& page, const Explored& explored, std::span<const float> surviving,
                  std::span<const Cluster> clusters, const BrainBackground& background) {
  const BrainBox box = brain_box({explored.z}, background);
  std::array<int, 3> start{};
  for (std::size_t axis = 0; axis < 3; ++axis) start[axis] = box.size(axis) / 2;
  if (!clusters.empty()) {
    const Voxel& peak = clusters.front().peaks.front().voxel;
    start = {peak.i - box.low[0], peak.j - box.low[1], peak.k - box.low[2]};
  }
  const ColourScale all(explored.z), scale(clusters.empty() ? explored.z : surviving);
  std::string markup = "<section id=\"explorer\" hidden=\"hidden\"";
  markup += attribute("data-size", numbers_text(std::array{box.size(0), box.size(1), box.size(2)}));
  markup += attribute("data-first", numbers_text(box.low));
  markup += attribute("data-origin", numbers_text(mm_of({0, 0, 0})));
  markup += attribute("data-edge", std::to_string(voxel_mm));
  markup += attribute("data-start", numbers_text(start));
  markup += attribute("data-lowest", std::to_string(rounded(scale.low(), hundredths)));
  markup += attribute("data-highest", std::to_string(rounded(scale.high(), hundredths)));
  markup += attribute("data-positive", colour_list(true));
  markup += attribute("data-negative", colour_list(false));
  markup +=
      ">\n<h2>Explorer</h2>\n<p class=\"caption hint\">Click into a picture, or on a region of the "
      "tables, to move the crosshair. Positive values are orange to yellow, negative ones "
      "blue to cyan with a white rim, as in the pictures. Left is left (neurological "
      "convention).</p>\n";
  markup += views_markup(false, box) + views_markup(true, box) + bars(scale) +
            controls(std::max<int>(1, rounded(all.high(), hundredths))) + readout(explored) +
            studies_part(explored.studies);
  markup += study_list(explored.studies);
  markup += volumes_of(explored, surviving, background, box).markup() + "</section>\n";
  page.scripted(markup, explorer_script);
}

}  // namespace kvo::report
