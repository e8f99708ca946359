#include "imaging/convert_actions.h"

#include "nifti/nifti_header.h"
#include "util/process.h"

namespace {

constexpr Convert_option KEEP_VALUES[] = {{"Do not change them", nullptr, false}};

constexpr Convert_option Z_SCORES[] = {
    {"Do not change them", nullptr, false},
    {"Convert them into \"t statistics\"",
     [](const char* path, double df) { return Q_format("\"%s\" -z2t %f \"%s\"", path, df, path); },
     true},
};

constexpr Convert_option LOG10_P_VALUES[] = {
    {"Do not change them", nullptr, false},
    {"Convert them into \"t statistics\"",
     [](const char* path, double df) {
       return Q_format("\"%s\" -logp2t %f \"%s\"", path, df, path);
     },
     true},
};

constexpr Convert_option UNKNOWN_VALUES[] = {
    {"Set them as \"-log10(p values)\"",
     [](const char* path, double /*df*/) { return Q_format("\"%s\" -set_logp", path); }, false},
    {"Set them as \"t statistics\"",
     [](const char* path, double df) { return Q_format("\"%s\" -set_t %f", path, df); }, true},
    {"Set them as \"z scores\"",
     [](const char* path, double /*df*/) { return Q_format("\"%s\" -set_z", path); }, false},
};

constexpr Convert_option KEEP_SPACE[] = {{"Do not change it", nullptr, false}};

constexpr Convert_option UNKNOWN_SPACE[] = {
    {"Set it as MNI",
     [](const char* path, double /*df*/) { return Q_format("\"%s\" -set_mni", path); }, false},
    {"Set it as Talairach",
     [](const char* path, double /*df*/) { return Q_format("\"%s\" -set_tal", path); }, false},
};

}  // namespace

bool kvo_image_is_ready(int intent_code, int sform_code) {
  return intent_code == NIFTI_T_STATISTIC &&
         (sform_code == NIFTI_TALAIRACH || sform_code == NIFTI_MNI);
}

Convert_question kvo_values_question(int intent_code) {
  switch (intent_code) {
    case NIFTI_T_STATISTIC:
      return {"Image values are \"t statistics\"", KEEP_VALUES, 1};
    case NIFTI_Z_SCORE:
      return {"Image values are \"z scores\"", Z_SCORES, 2};
    case NIFTI_LOG10_P:
      return {"Image values are \"-log10(p values)\"", LOG10_P_VALUES, 2};
    default:
      return {"Image values are unknown", UNKNOWN_VALUES, 2};
  }
}

Convert_question kvo_space_question(int sform_code) {
  switch (sform_code) {
    case NIFTI_TALAIRACH:
      return {"Stereotactic space is Talairach", KEEP_SPACE, 1};
    case NIFTI_MNI:
      return {"Stereotactic space is MNI", KEEP_SPACE, 1};
    default:
      return {"Stereotactic space is unknown", UNKNOWN_SPACE, 1};
  }
}

Q_string kvo_compress_arguments(const char* path) {
  return Q_format("\"%s\"", path);
}

std::string kvo_compressed_path(const std::string& path) {
  return path.substr(0, path.size() - 3) + "nii.gz";
}

bool kvo_path_fits_command(const std::string& path) {
  return path.find_first_of(Q_ACTS_IN_QUOTES) == std::string::npos &&
         path.find('\n') == std::string::npos;
}
