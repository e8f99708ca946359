// The engine's lists: any content is read, into names that the formats can hold.

#include <algorithm>
#include <cstdint>

#include "check.h"
#include "workspace/files/map_lists.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view content(reinterpret_cast<const char*>(data), size);
  for (const std::string& name : kvo_read_map_names(content))
    check(!name.empty() && name.find_first_of("\t\n\v\f\r") == std::string::npos);
  const Q_string_list names = kvo_read_nd_names(content);
  check(std::is_sorted(names.begin(), names.end()));
  for (const std::string& name : names)
    check(!name.empty() && name.find(' ') == std::string::npos && !name.ends_with("_n"));
  return 0;
}
