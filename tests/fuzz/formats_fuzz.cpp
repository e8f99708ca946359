// Files of other programs: any content is read or refused with a sentence, and what is read can be
// written in every format and read again. The first byte says which kind it is.

#include <cstdint>

#include "check.h"
#include "engine/base/refusal.h"
#include "engine/formats/foreign_file.h"
#include "engine/formats/nimads.h"
#include "engine/formats/peaks_table.h"
#include "engine/formats/sleuth.h"

using namespace kvo::formats;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
  try {
    ForeignStudies read = data[0] % 3 == 0   ? table_studies("x", text)
                          : data[0] % 3 == 1 ? sleuth_studies("x", text)
                                             : nimads_studies("x", text);
    const NewStudies studies = new_studies(std::move(read), "x", Space::mni);
    for (const NewStudy& study : studies.studies)
      check(!study.name.starts_with('.') && study.name.find_first_of("/ ,") == std::string::npos);
    foreign_text_of(studies.studies, FileKind::sleuth);
    foreign_text_of(studies.studies, FileKind::nimads);
    const std::string table = foreign_text_of(studies.studies, FileKind::comma_table);
    check(table_studies("x", table).studies.size() == studies.studies.size());
  } catch (const kvo::base::Refusal& refusal) {
    check(std::string_view(refusal.what()).starts_with("'x'"));
  }
  return 0;
}
