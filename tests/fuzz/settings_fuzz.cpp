// Settings: any content is read, and what it gives can be written and read back.

#include <cstdint>

#include "check.h"
#include "workspace/files/settings_file.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view content(reinterpret_cast<const char*>(data), size);
  Kvo_settings settings;
  kvo_read_settings(content, settings);
  check(kvo_lost_settings(settings).empty());
  // A folder may have any name; the file keeps its four lines.
  const std::string text = kvo_settings_text({Q_string(content.substr(0, Q_STRING_MAX)), {}, {}});
  std::size_t lines = 0;
  for (const char byte : text) lines += byte == '\n' ? 1 : 0;
  check(lines == 4);
  return 0;
}
