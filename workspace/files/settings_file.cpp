#include "workspace/files/settings_file.h"

#include <algorithm>
#include <optional>

#include "util/lines.h"
#include "util/text.h"

namespace {

struct Setting {
  const char* key;
  Q_string Kvo_settings::*value;
};
constexpr Setting SETTINGS[] = {
    {"working directory", &Kvo_settings::working_directory},
    {"brain viewer", &Kvo_settings::brain_viewer},
    {"brain viewer executable", &Kvo_settings::brain_viewer_executable},
};

/// Takes the first run of characters other than "=", with the "=" before and behind it, off the
/// text.
std::string_view take_run(std::string_view& text) {
  text.remove_prefix(std::min(text.find_first_not_of('='), text.size()));
  const std::string_view run = text.substr(0, text.find('='));
  text.remove_prefix(run.size());
  return run;
}

void read_line(std::string_view raw, Kvo_settings& settings) {
  const std::string line = Q_trimmed(raw);
  std::string_view rest = line;
  const std::string key = Q_trimmed(take_run(rest));
  const std::string_view value = take_run(rest);
  if (value.empty()) return;
  for (const Setting& setting : SETTINGS)
    if (key == setting.key) settings.*setting.value = Q_string(Q_trimmed(value));
}

std::string on_one_line(std::string text) {
  std::ranges::replace_if(
      text, [](char byte) { return Q_LINE_ENDS.find(byte) != std::string_view::npos; }, ' ');
  return text;
}

}  // namespace

void kvo_read_settings(std::string_view content, Kvo_settings& settings) {
  for (const std::string_view line : Q_split_lines(content)) read_line(line, settings);
}

std::string kvo_settings_text(const Kvo_settings& settings) {
  std::string text;
  for (const Setting& setting : SETTINGS)
    text.append(setting.key)
        .append(" = ")
        .append(on_one_line((settings.*setting.value).str()))
        .append("\n");
  return text + "\n";
}

std::vector<Kvo_lost_setting> kvo_lost_settings(const Kvo_settings& settings) {
  Kvo_settings back;
  kvo_read_settings(kvo_settings_text(settings), back);
  std::vector<Kvo_lost_setting> lost;
  for (const Setting& setting : SETTINGS) {
    const Q_string& value = settings.*setting.value;
    if (!(value == back.*setting.value)) lost.push_back({setting.key, value, back.*setting.value});
  }
  return lost;
}
