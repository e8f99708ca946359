#include "engine/studies/study_source.h"

#include "engine/base/exists.h"
#include "engine/base/refusal.h"
#include "engine/studies/study_rules.h"

namespace kvo::studies {

StudySource study_source(const Study& study) {
  const std::string peaks = peaks_file_of(study.name), image = image_file_of(study.name);
  const bool has_peaks = path_exists(peaks), has_image = path_exists(image);
  if (const auto fault = source_fault(study.name, has_peaks, has_image)) throw Refusal(*fault);
  return {has_image, has_image ? image : peaks};
}

}  // namespace kvo::studies
