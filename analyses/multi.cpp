#include "analyses/multi.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>

#include "analyses/asking.h"
#include "analyses/names.h"
#include "dialogs/canned.h"
#include "dialogs/help.h"
#include "dialogs/input.h"
#include "util/files.h"
#include "util/handles.h"
#include "util/read_file.h"
#include "workspace/files/file_names.h"
#include "workspace/settings.h"
#include "workspace/working_folder.h"

namespace {

namespace fs = std::filesystem;

constexpr const char* IMAGES_MESSAGE =
    "MULTIMODAL META-ANALYSES\n"
    "This procedure allows the study of the convergence between two meta-analyses using different "
    "modalities ('multimodal', e.g. gray matter VBM and fMRI), or between two functional "
    "meta-analyses using different tasks ('multitask'). Please specify their p-value images and "
    "short names (i.e. one word, just to clarify the outputs).";
/// Larger images count as different.
constexpr std::size_t LARGEST_COMPARED = std::size_t{256} << 20;
constexpr const char* FOLDER_TITLE = "Select the folder where you want to save the results.";
constexpr const char* THRESHOLD_MESSAGE =
    "THRESHOLD\nSelect a probability (usually lower than for unimodal meta-analyses).";
constexpr const char* ADVANCED_MESSAGE =
    "MULTIMODAL META-ANALYSES\n"
    "Advanced options. Uncheck the first two options to conduct a simple overlap. Check only the "
    "first option to assume error, being conservative. Check both options to assume error without "
    "being conservative; in this case specify the tolerable p-values in the unimodal meta-analyses "
    "to avoid being too liberal. The method is described in the manual, on the page that Help "
    "opens (";

/// Bytes that both names may have together: a result's name has 43 more.
constexpr std::size_t NAMES_MAX = KVO_RESULT_NAME_MAX - 43;

/// The limits of all probabilities.
constexpr int PROBABILITY_PRECISION = -5;
constexpr float PROBABILITY_MIN = 0.00001F;
constexpr float PROBABILITY_MAX = 0.5F;

void probability_item(std::span<Q_input_item> items, int index, const char* label, float value) {
  Q_input_item_num(items, index, label, PROBABILITY_PRECISION, PROBABILITY_MIN, PROBABILITY_MAX,
                   value);
}

bool is_p_image(const std::string& path) {
  return Q_file_exists("%s", path.c_str()) != 0 && path.ends_with(KVO_P_IMAGE_SUFFIX);
}

fs::path copy_path(const std::string& folder, const Kvo_multi_study& study) {
  return fs::path(folder) / (study.name + KVO_P_IMAGE_SUFFIX);
}

/// Whether both paths lead to the same existing file.
bool same_file(const fs::path& path, const std::string& other) {
  std::error_code not_there;
  return fs::equivalent(path, other, not_there);
}

/// Whether a new file can be made in the folder. This makes one, because permissions alone do not
/// show everything that is read-only.
bool takes_files(const std::string& folder) {
  std::string path = folder + "/kvo_XXXXXX";
  const Q_fd file(mkstemp(path.data()));
  if (file) Q_rm("%s", path.c_str());
  return static_cast<bool>(file);
}

bool can_read(const fs::path& path) {
  std::error_code failure;
  return fs::is_regular_file(path, failure) && access(path.c_str(), R_OK) == 0;
}

/// Whether the path is free, or leads to a file that can be written.
bool can_write(const fs::path& path) {
  std::error_code failure;
  if (fs::symlink_status(path, failure).type() == fs::file_type::not_found) return true;
  return fs::is_regular_file(path, failure) && access(path.c_str(), W_OK) == 0;
}

std::optional<Kvo_multi_pair> ask_pair() {
  const std::string pattern = std::string("*") + KVO_P_IMAGE_SUFFIX;
  std::array<Q_input_item, 4> items;
  Q_input_item_file(items, 0, "Meta-analysis 1, p-value image", "", pattern.c_str());
  Q_input_item_str(items, 1, "Meta-analysis 1, short name", "");
  Q_input_item_file(items, 2, "Meta-analysis 2, p-value image", "", pattern.c_str());
  Q_input_item_str(items, 3, "Meta-analysis 2, short name", "");
  if (Q_input(IMAGES_MESSAGE, items.size(), items) == 0) return std::nullopt;
  return Kvo_multi_pair{{items[0].text.str(), items[1].text.str()},
                        {items[2].text.str(), items[3].text.str()}};
}

bool ask_threshold(Kvo_multi_answers& answers) {
  std::array<Q_input_item, 3> items;
  probability_item(items, 0, "Probability", answers.probability);
  probability_item(items, 1, "Peak height threshold", answers.peak);
  Q_input_item_num(items, 2, "Extent threshold", 0, 1, 100, static_cast<float>(answers.extent));
  if (Q_input(THRESHOLD_MESSAGE, items.size(), items) == 0) return false;
  answers.probability = items[0].value;
  answers.peak = items[1].value;
  answers.extent = static_cast<int>(items[2].value);
  return true;
}

bool ask_advanced(Kvo_multi_answers& answers) {
  const Q_string message =
      Q_format("%s%s%s).", ADVANCED_MESSAGE, Qs_HelpURL.c_str(), Qs_HelpTopic.c_str());
  std::array<Q_input_item, 3> items;
  Q_input_item_boolean(items, 0, "Assume error in p-values (recommended)", answers.assume_error);
  Q_input_item_boolean(items, 1, "Decrease p-values as in a better scenario",
                       answers.better_scenario);
  probability_item(items, 2, "Tolerable p-values in the meta-analyses", answers.tolerable);
  if (Q_input(message.c_str(), items.size(), items) == 0) return false;
  answers.assume_error = items[0].value != 0;
  answers.better_scenario = items[1].value != 0;
  answers.tolerable = items[2].value;
  return true;
}

bool same_content(const fs::path& file, const std::string& other) {
  Q_read_fault ignored;
  const auto content = Q_read_file(file.c_str(), LARGEST_COMPARED, ignored);
  return content && content == Q_read_file(other.c_str(), LARGEST_COMPARED, ignored);
}

/// Whether all copies may be made; asks about files that they would replace.
bool may_copy_to(const std::string& folder, const Kvo_multi_pair& pair) {
  return std::ranges::all_of(kvo_replaced_by_copies(folder, pair), [](const std::string& file) {
    return Q_input_boolean(Q_format("The file '%s' already exists and is another one. Do you want "
                                    "to overwrite it?",
                                    file.c_str())
                               .c_str(),
                           false);
  });
}

void move_to(const Q_string& folder, const Kvo_multi_pair& pair) {
  kvo_enter_folder(folder.c_str());
  kvo_show_title();
  for (const Kvo_multi_study* study : {&pair.first, &pair.second})
    Q_cp(study->image.c_str(), "%s%s", study->name.c_str(), KVO_P_IMAGE_SUFFIX);
}

}  // namespace

std::string kvo_check_multi_pair(Kvo_multi_pair& pair) {
  auto& [first, second] = pair;
  if (!is_p_image(first.image))
    return "No p-value image was specified for meta-analysis 1. Please try again.";
  if (first.name.empty()) first.name = "meta1";
  if (!is_p_image(second.image))
    return "No p-value image was specified for meta-analysis 2. Please try again.";
  if (second.image == first.image)
    return "No different p-value image was specified for meta-analysis 2. Please try again.";
  if (second.name.empty()) second.name = "meta2";
  if (second.name == first.name) second.name += "_2";
  for (const Kvo_multi_study* study : {&first, &second}) {
    if (std::string reason = kvo_file_name_refusal(study->name); !reason.empty()) return reason;
    if (study->name.starts_with(KVO_MASK_PREFIX))
      return Q_format(
                 "The name '%s' cannot be used: names that begin with '%s' are kept for masks. "
                 "Please change the name and try again.",
                 study->name.c_str(), KVO_MASK_PREFIX)
          .str();
    if (std::string reason = kvo_path_refusal(study->image); !reason.empty()) return reason;
    if (!can_read(study->image))
      return Q_format("The image '%s' cannot be read. Please choose another one and try again.",
                      study->image.c_str())
          .str();
  }
  if (first.name.size() + second.name.size() > NAMES_MAX)
    return Q_format(
               "The names '%s' and '%s' are too long for the names of the results. Please shorten "
               "them and try again.",
               first.name.c_str(), second.name.c_str())
        .str();
  return "";
}

Q_string_list kvo_replaced_by_copies(const std::string& folder, const Kvo_multi_pair& pair) {
  Q_string_list replaced;
  for (const Kvo_multi_study* study : {&pair.first, &pair.second}) {
    const fs::path copy = copy_path(folder, *study);
    if (Q_file_exists("%s", copy.c_str()) != 0 && !same_content(copy, study->image))
      replaced.push_back(copy);
  }
  return replaced;
}

std::string kvo_check_results_folder(const std::string& folder, const Kvo_multi_pair& pair) {
  if (!takes_files(folder))
    return Q_format(
               "The folder '%s' cannot be written to. Please choose another one and try again.",
               folder.c_str())
        .str();
  for (const auto& [study, other] :
       {std::pair(&pair.first, &pair.second), std::pair(&pair.second, &pair.first)}) {
    const fs::path copy = copy_path(folder, *study);
    if (same_file(copy, other->image))
      return Q_format(
                 "The copy '%s' would overwrite one of the two images. Please choose another "
                 "folder or short name and try again.",
                 copy.c_str())
          .str();
    if (same_file(copy, study->image)) continue;  // the image itself, which is left alone
    if (!can_write(copy))
      return Q_format(
                 "The file '%s' cannot be written. Please choose another folder or short name "
                 "and try again.",
                 copy.c_str())
          .str();
  }
  return "";
}

Kvo_composed kvo_compose_multi(const Kvo_multi_pair& pair, const Kvo_multi_answers& answers) {
  const auto& [first, second] = pair;
  const auto probability = static_cast<double>(answers.probability);
  const auto peak = static_cast<double>(answers.peak);
  const auto tolerable = static_cast<double>(answers.tolerable);
  const int extent = answers.extent;
  const int assume_error = answers.assume_error ? 1 : 0;
  const int better_scenario = answers.better_scenario ? 2 : 0;
  return kvo_composed(
      {first.name, second.name},
      Q_format("# Perform a multimodal analysis of '%s' (copied from %s) and '%s' (copied from "
               "%s),\n"
               "# threshold with p %.5f, minimum peak height %.5f, minimum %i voxels, options: "
               "[%i, %i, %.5f]:\n",
               first.name.c_str(), first.image.c_str(), second.name.c_str(), second.image.c_str(),
               probability, peak, extent, assume_error, better_scenario, tolerable),
      Q_format("multi %s, %s, %.5f, %.5f, %i, %i, %i, %.5f", kvo_word(first.name).c_str(),
               kvo_word(second.name).c_str(), probability, peak, extent, assume_error,
               better_scenario, tolerable));
}

void kvo3_multi() {
  Qs_HelpTopic = "multi";
  std::optional<Kvo_multi_pair> pair = ask_pair();
  if (!pair || kvo_refused(kvo_check_multi_pair(*pair))) return;
  Q_string folder = kvo_s_user_dir;
  if (!Q_input_folder(folder, FOLDER_TITLE) || folder.empty()) return;
  if (kvo_refused(kvo_folder_refusal(folder.str())) ||
      kvo_refused(kvo_check_results_folder(folder.str(), *pair)))
    return;
  if (!may_copy_to(folder.str(), *pair)) return;
  Kvo_multi_answers answers;
  if (!ask_threshold(answers) || !ask_advanced(answers)) return;
  const Kvo_composed composed = kvo_compose_multi(*pair, answers);
  if (kvo_refused(composed.refusal)) return;
  move_to(folder, *pair);
  kvo_run(composed);
}
