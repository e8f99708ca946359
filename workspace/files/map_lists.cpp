#include "workspace/files/map_lists.h"

#include <utility>

#include "util/files.h"
#include "util/lines.h"
#include "util/read_file.h"
#include "workspace/files/file_names.h"

Q_string_list kvo_vs_maps;
std::int32_t kvo_maps = 0;
Q_string_list kvo_vs_nds;
std::int32_t kvo_nds = 0;

namespace {

void load(const char* path, Q_string_list (*read_names)(std::string_view), Q_string_list& names,
          std::int32_t& count) {
  names = read_names(Q_read_text_or_die(path));
  count = static_cast<std::int32_t>(names.size());
}

}  // namespace

void kvo_load_kvo_maps_txt() {
  load(KVO_MAPS_FILE, kvo_read_map_names, kvo_vs_maps, kvo_maps);
}

int kvo3_load_nd_names() {
  if (Q_file_exists(KVO_ND_FILE) == 0) return 0;
  load(KVO_ND_FILE, kvo_read_nd_names, kvo_vs_nds, kvo_nds);
  return kvo_nds;
}

bool kvo_is_negative_tail(std::string_view name) {
  return name.ends_with(KVO_NEGATIVE_TAIL);
}

Q_string_list kvo_read_map_names(std::string_view content) {
  Q_string_list names;
  for (const std::string_view raw : Q_split_lines(content)) {
    std::string line = Q_trimmed(raw);
    if (!line.empty()) names.push_back(std::move(line));
  }
  return names;
}

Q_string_list kvo_read_nd_names(std::string_view content) {
  const Q_string_list lines = kvo_read_map_names(content);
  Q_string_list names;
  for (std::size_t i = 1; i < lines.size(); ++i) {
    std::string name = lines[i].substr(0, lines[i].find(' '));
    if (!kvo_is_negative_tail(name)) names.push_back(std::move(name));
  }
  Q_sort_string_asc(static_cast<int>(names.size()), names);
  return names;
}
