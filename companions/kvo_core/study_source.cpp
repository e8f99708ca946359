#include "companions/kvo_core/study_source.h"

#include "companions/common/error.h"
#include "companions/common/exists.h"
#include "companions/common/study_rules.h"

StudySource study_source(const Study& study) {
  const std::string peaks = peaks_file_of(study.name), image = image_file_of(study.name);
  const bool has_peaks = path_exists(peaks), has_image = path_exists(image);
  if (const auto fault = source_fault(study.name, has_peaks, has_image)) throw Refusal(*fault);
  return {has_image, has_image ? image : peaks};
}
