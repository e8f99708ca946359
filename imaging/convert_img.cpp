#include "imaging/convert_img.h"

#include <array>
#include <filesystem>
#include <vector>

#include "dialogs/canned.h"
#include "dialogs/help.h"
#include "dialogs/input.h"
#include "dialogs/message.h"
#include "imaging/choose_image.h"
#include "imaging/convert_actions.h"
#include "imaging/exec_imgcalc.h"
#include "imaging/nifti.h"
#include "util/files.h"

namespace {

constexpr const char* NOTE =
    "***  PLEASE READ THIS VERY IMPORTANT NOTE  ***\n\nConversion of NIfTI files from other "
    "software may sometimes fail, e.g. leading to blank or flipped images. We thus STRONGLY "
    "RECOMMEND ALWAYS CHECKING with a brain viewer (e.g. MRICron, FSLView or SPM Display) "
    "that:\n\n- The converted file is a correct brain image.\n- The left and right sides are not "
    "flipped.\n- The pre-processing peaks are similar to those reported in the manuscript.\n\nIn "
    "case of failure, you might try to firstly copy the original NIfTI file to the meta-analysis "
    "directory, secondly open and save the copy with MRICron, and finally convert it with KVO. "
    "This seems to fix small issues of the file which prevent a correct conversion by KVO.\n\nIn "
    "case that left and right sides are flipped, you can try to fix the issue with FSL "
    "(\"fslswapdim [filename] -x y z [filename]\"), MRICro (\"Save as...\": \"Flip Left/Right\") "
    "or SPM (\"Display\": \"resize {x} = -1\").";
constexpr const char* READY = "Congratulations!\nThe image is ready for KVO pre-processing!";
constexpr const char* SEVERAL_VOLUMES = "This NIfTI image contain more than one volume";
constexpr const char* WILL_BE_COMPRESSED =
    "Original NIfTI file will be converted into NIfTI compressed file (.nii.gz)";
constexpr const char* OVERWRITE =
    "A file with the same name already exists. Do you want to overwrite it?";
constexpr const char* LEADS_TO_IMAGE =
    "The file '%s' leads to the image itself, which would be overwritten. Please remove or rename "
    "it and try again.";
constexpr const char* UNUSABLE_PATH =
    "The path of this image contains a double quote, a back quote, a dollar sign, a backslash or a "
    "line break, which cannot be passed on to the image calculator. Please rename the file or its "
    "folder.\n\n%s";
constexpr const char* DEGREES_OF_FREEDOM =
    "Specify the degrees of the t statistic\nNote that standard one-sample t-tests have (n - 1) "
    "degrees of freedom (where 'n' is the size of the sample), while standard two-sample t-tests "
    "assuming equal variances have (n1 + n2 - 2) degrees of freedom (where 'n1' is the size of the "
    "patient sample and 'n2' is the size of the control sample).";

enum class Step { go_on, stop };

/// Whether writing the compressed file would overwrite the image that it is made from, or the
/// voxels of a pair, because a link leads there.
bool leads_to_image(const std::string& compressed, const std::string& path) {
  std::error_code not_there;
  const std::string voxels = path.substr(0, path.size() - 3) + "img";
  return std::filesystem::equivalent(compressed, path, not_there) ||
         std::filesystem::equivalent(compressed, voxels, not_there);
}

/// Reads the chosen file and, unless it is one already, makes a compressed file of it, whose path
/// then replaces `path`.
Step make_compressed(std::string& path) {
  Nifti_header header{};
  std::int32_t n_volumes = 0;
  std::int32_t voxels = 0;
  int kind = 0;
  {
    std::vector<Nifti_volume> volumes(Q_MAX_VOLUMES);
    kind = Q_load_nifti(header, n_volumes, voxels, volumes, "%s", path.c_str());
  }
  if (n_volumes > 1) {
    Q_input_warning("%s", SEVERAL_VOLUMES);
    return Step::stop;
  }
  if (kind == static_cast<int>(Nifti_kind::compressed)) return Step::go_on;
  const std::string compressed = kvo_compressed_path(path);
  if (leads_to_image(compressed, path)) {
    Q_input_warning(LEADS_TO_IMAGE, compressed.c_str());
    return Step::stop;
  }
  if (!Q_input_boolean(WILL_BE_COMPRESSED, true)) return Step::stop;
  if (Q_file_exists("%s", compressed.c_str()) != 0 && !Q_input_boolean(OVERWRITE, false))
    return Step::stop;
  if (!kvo3_exec_imgcalc("%s", kvo_compress_arguments(path.c_str()).c_str())) return Step::stop;
  path = compressed;
  return Step::go_on;
}

void ask_about(std::span<Q_input_item> items, int index, const Convert_question& question) {
  Q_string_list texts;
  for (const Convert_option& option : question.options) texts.emplace_back(option.text);
  Q_input_item_temp_opt(items, index, question.label, question.preselected, std::move(texts));
}

/// Carries out the option at the answer's position.
Step carry_out(const Convert_question& question, const Q_input_item& answer,
               const std::string& path) {
  const int position = static_cast<int>(answer.value);
  if (position < 1 || position > static_cast<int>(question.options.size())) return Step::go_on;
  const Convert_option& option = question.options[static_cast<std::size_t>(position - 1)];
  if (option.arguments == nullptr) return Step::go_on;
  const float df = option.asks_degrees_of_freedom ? kvo3_convert_img_df() : 0;
  if (option.asks_degrees_of_freedom && df == 0) return Step::stop;
  const bool done = kvo3_exec_imgcalc("%s", option.arguments(path.c_str(), df).c_str());
  return done ? Step::go_on : Step::stop;
}

/// Looks at the image once and carries out what the user wants to be done with it.
Step make_pass(const std::string& path) {
  Nifti_header header{};
  {
    std::int32_t voxels = 0;
    Nifti_volume volume;
    Q_load_nifti_one_or_die(header, voxels, volume, "%s", path.c_str());
  }
  if (kvo_image_is_ready(header.intent_code, header.sform_code)) {
    Q_input_warning("%s", READY);
    return Step::stop;
  }
  const std::array questions{kvo_values_question(header.intent_code),
                             kvo_space_question(header.sform_code)};
  std::array<Q_input_item, questions.size()> items;
  for (std::size_t i = 0; i < questions.size(); ++i)
    ask_about(items, static_cast<int>(i), questions[i]);
  if (Q_input(path.c_str(), static_cast<int>(items.size()), items) == 0) return Step::stop;
  for (std::size_t i = 0; i < questions.size(); ++i)
    if (carry_out(questions[i], items[i], path) == Step::stop) return Step::stop;
  return Step::go_on;
}

}  // namespace

float kvo3_convert_img_df() {
  std::array<Q_input_item, 1> items;
  Q_input_item_num(items, 0, "Degrees of freedom", 2, 2, 9999, 30);
  return Q_input(DEGREES_OF_FREEDOM, 1, items) != 0 ? items[0].value : 0;
}

void kvo3_convert_img() {
  Qs_HelpTopic = "folder";
  Q_input_warning("%s", NOTE);
  std::optional<std::string> path = kvo3_choose_image();
  if (!path) return;
  if (!kvo_path_fits_command(*path)) {
    Q_input_warning(UNUSABLE_PATH, path->c_str());
    return;
  }
  // A name typed without its ending is completed, so that all that follows sees the same file.
  *path = nifti_find_file(*path).value_or(*path);
  if (make_compressed(*path) == Step::stop) return;
  while (make_pass(*path) == Step::go_on) continue;
}
