#include "companions/kvo_core/study_source.h"

#include "companions/common/error.h"
#include "companions/common/exists.h"
#include "companions/kvo_core/peaks.h"
#include "companions/kvo_core/study_image.h"

StudySource study_source(const Study& study) {
  const std::string peaks = peaks_file(study), image = image_file(study);
  const bool has_peaks = path_exists(peaks), has_image = path_exists(image);
  if (!has_peaks && !has_image)
    throw Refusal("Study '" + study.name + "' has no peaks file '" + peaks + "' and no image '" +
                  image + "'.");
  if (has_peaks && has_image)
    throw Refusal("Study '" + study.name + "' has both a peaks file '" + peaks +
                  "' and an image '" + image + "'. Please keep one of them.");
  return {has_image, has_image ? image : peaks};
}
