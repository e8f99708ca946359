#include "companions/imgcalc/command_line.h"

#include <filesystem>
#include <optional>
#include <string_view>

#include "engine/base/refusal.h"
#include "engine/base/text_file.h"
#include "util/q_string.h"

namespace kvo::imgcalc {

namespace {

constexpr double LEAST_DF = 1;
constexpr double MOST_DF = 1e6;
constexpr std::string_view PROGRESS_WORD = "KVO";

struct Row {
  const char* option;
  Operation operation;
  bool takes_df;
  bool takes_output;
  const char* doing;  ///< with the file's name in place of "%s"
  const char* help;
};
constexpr Row ROWS[] = {
    {"-set_t", Operation::set_t, true, false, "Declaring the values of '%s' as t statistics",
     "declare the values as t statistics with DF degrees of freedom"},
    {"-set_z", Operation::set_z, false, false, "Declaring the values of '%s' as z scores",
     "declare the values as z scores"},
    {"-set_logp", Operation::set_log10_p, false, false,
     "Declaring the values of '%s' as -log10(p values)",
     "declare the values as -log10(p values), one-tailed, signed"},
    {"-set_mni", Operation::set_mni, false, false, "Declaring the space of '%s' as MNI",
     "declare the space as MNI"},
    {"-set_tal", Operation::set_talairach, false, false, "Declaring the space of '%s' as Talairach",
     "declare the space as Talairach"},
    {"-z2t", Operation::z_to_t, true, true, "Converting the z scores of '%s' into t statistics",
     "write z scores as t statistics of the same p value"},
    {"-logp2t", Operation::log10_p_to_t, true, true,
     "Converting the -log10(p values) of '%s' into t statistics",
     "write signed one-tailed -log10(p values) as t statistics"},
};
constexpr const char* COMPRESSING = "Converting '%s' into a NIfTI compressed file";

const Row* row_of(std::string_view option) {
  for (const Row& row : ROWS)
    if (option == row.option) return &row;
  return nullptr;
}

std::string usage_of(const Row& row) {
  return std::string(row.option) + (row.takes_df ? " DF" : "") + (row.takes_output ? " OUT" : "");
}

double degrees_of_freedom(const char* word) {
  const std::optional<double> df = number_of(word);
  if (!df || *df < LEAST_DF || *df > MOST_DF)
    throw Refusal(Q_format("'%s' is no number of degrees of freedom: it must be from %g to %.0f",
                           word, LEAST_DF, MOST_DF)
                      .str());
  return *df;
}

std::string output_path(std::string_view word) {
  if (!word.ends_with(".nii") && !word.ends_with(".nii.gz"))
    throw Refusal("'" + std::string(word) +
                  "' cannot be written: its name must end in .nii.gz or "
                  ".nii");
  return std::string(word);
}

}  // namespace

bool take_progress_word(std::span<const char* const>& words) {
  if (words.size() < 2 || words.back() != PROGRESS_WORD) return false;
  words = words.first(words.size() - 1);
  return true;
}

Command parse_command(std::span<const char* const> words) {
  if (words.empty()) throw Refusal("no image was given; --help explains what to give");
  Command command;
  command.path = words[0];
  if (words.size() == 1) return command;
  const Row* row = row_of(words[1]);
  if (row == nullptr)
    throw Refusal("'" + std::string(words[1]) + "' is no option; --help lists them");
  const std::size_t expected = 2U + (row->takes_df ? 1 : 0) + (row->takes_output ? 1 : 0);
  if (words.size() != expected) throw Refusal("it must be 'imgcalc PATH " + usage_of(*row) + "'");
  command.operation = row->operation;
  if (row->takes_df) command.df = degrees_of_freedom(words[2]);
  if (row->takes_output) command.output = output_path(words[3]);
  return command;
}

std::string description_of(const Command& command) {
  std::string text = COMPRESSING;
  for (const Row& row : ROWS)
    if (row.operation == command.operation) text = row.doing;
  return text.replace(text.find("%s"), 2, std::filesystem::path(command.path).filename().string());
}

std::string help_text() {
  std::string text =
      "Usage: imgcalc PATH [OPTION] [KVO]\n\n"
      "Converts a NIfTI-1 image (.nii.gz, .nii, or .hdr with .img), and changes what its header\n"
      "declares. Without an option, PATH is written beside itself as .nii.gz, replacing a file "
      "that\n"
      "is there. An image is written whole or not at all.\n\n";
  for (const Row& row : ROWS)
    text += Q_format("  %-18s %s\n", usage_of(row).c_str(), row.help).str();
  text +=
      "\nDF is the number of degrees of freedom. OUT is the image to write (.nii.gz or .nii); it "
      "may\n"
      "be PATH. The -set options change PATH itself, and only its header. When the space is\n"
      "declared and the header has neither qform nor sform, the voxels must be those of a "
      "standard\n"
      "grid of that space, such as 91 x 109 x 91 of 2 mm, and are taken to be stored from left to\n"
      "right, from the back to the front and upwards. Other images are refused. A qform that "
      "places\n"
      "the voxels elsewhere than the sform is replaced by it, and lengths in other units become "
      "mm;\n"
      "the program then says so.\n\n"
      "The sign of a -log10(p value) is the direction that was tested. 0, NaN and infinite values\n"
      "stay as they are; a t statistic too large for the image becomes the largest number.\n\n"
      "The last word KVO asks for the progress lines of the suite on standard output: 'a' and "
      "what\n"
      "is being done, 'o' when it is done, 'w' and the reason when it has failed.\n\n"
      "Exit status: 0 when the image was converted, 1 when it was left as it was.\n";
  return text;
}

}  // namespace kvo::imgcalc
