// The text files that the engine reads: any content is read or refused with a sentence that names
// the file, and what is read can be calculated with. The first byte says which file it is.

#include <cmath>
#include <cstdint>

#include "check.h"
#include "engine/base/refusal.h"
#include "engine/maps/folder_maps.h"
#include "engine/maps/pp_record.h"
#include "engine/studies/study.h"
#include "engine/studies/study_peaks.h"
#include "test_folder.h"

using namespace kvo::maps;

namespace {

void use_table() {
  const StudyTable table = read_study_table();
  check(!table.studies.empty());
  for (const Study& study : table.studies) {
    check(study.values.size() == table.columns.size());
    check(study.name.find_first_of("/\n") == std::string::npos && !study.name.starts_with('.'));
    const auto [n1, n2] = study.sample;
    check(n2 == 0 ? n1 >= 3 : n1 >= 2 && n2 >= 2);
    const double t = threshold_of(study).t;
    check(t >= 0 && t <= 1000);
  }
}

void use_peaks() {
  Study study;
  study.name = "A";
  study.sample.n1 = 12;
  for (const Peak& peak : read_peaks(study).peaks)
    check(std::isfinite(peak.g) && peak.mm.allFinite() && peak.mm.norm() < 500);
}

void use_record() {
  const PpRecord record = read_pp_record();
  check(record.randomizations >= 1 && record.anisotropy >= 0 && record.anisotropy <= 1);
  check(std::isfinite(record.fwhm) && !record.mask.empty());
}

void use_lists() {
  const auto facts = read_analysis_facts("A");
  check(!facts || (facts->studies > 0 && facts->participants > 0));
}

void use_null_list() {
  check(null_values_of("A") > 0);
}

constexpr struct {
  const char* file;
  void (*use)();
} readers[] = {{"kvo_table.txt", use_table},
               {"A.peaks.txt", use_peaks},
               {"kvo_pp.txt", use_record},
               {"kvo_analyses.txt", use_lists},
               {"kvo_nd.txt", use_null_list}};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  // The fuzzer looks for its own files in the folder that it was started in.
  static const std::filesystem::path home = std::filesystem::current_path();
  static const Test_folder folder;
  std::filesystem::current_path(folder.path());
  const auto& [file, use] = readers[data[0] % std::size(readers)];
  write_text(file, std::string(reinterpret_cast<const char*>(data) + 1, size - 1));
  try {
    use();
  } catch (const Refusal& refusal) {
    check(std::string(refusal.what()).find(file) != std::string::npos);
  }
  std::filesystem::current_path(home);
  return 0;
}
