#pragma once

// The questions of an input dialog. A handler fills an array of items, one a row, hands it to
// Q_input and reads the answers from the same items. The constructors need no window.

#include <concepts>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "dialogs/options.h"
#include "dialogs/widgets.h"
#include "util/q_string.h"
#include "util/text.h"

/// Option texts as an item's `options` points at them, with the copies that a 't' item owns.
struct Q_item_options {
  Q_string_list texts;
  std::vector<const char*> pointers;
};

/// One question: its kind, its default and, after OK, its answer. Fields that a kind does not use
/// are neither read nor written.
struct Q_input_item {
  Q_string label;                        ///< plain text to the left of the field
  char kind = '\0';                      ///< b, f, n, o, t, s or v
  float min = 0;                         ///< n: lowest value
  float max = 0;                         ///< n: highest value
  std::int32_t precision = 0;            ///< n: the step is 10^precision
  std::int32_t n_options = 0;            ///< o, t: number of option texts
  const char* const* options = nullptr;  ///< o, t: option texts; f: the file-name pattern at 0
  Q_string text;                         ///< s, f: default and answer
  float value = 0;                       ///< b: 0 or 1; n: the number; o, t: position, from 1
  Q_voxel voxel;                         ///< v: default and answer
  /// What `options` points at when the constructor made it; else nothing.
  std::unique_ptr<const Q_item_options> owned_options;
};

// Each constructor fills item `index` (from 0) of the caller's array with a label and the fields of
// its kind, and leaves the other fields as they are.

/// 's', a line of text; its answer has its white space normalised.
void Q_input_item_str(std::span<Q_input_item> items, int index, const char* label,
                      const char* text);

/// 'n', a number in [min, max] with the step 10^precision.
void Q_input_item_num(std::span<Q_input_item> items, int index, const char* label, int precision,
                      float min, float max, float value);

/// 'o', a choice among n texts of the caller's; position (from 1) is the default, 0 for none. The
/// texts and their array must outlive the dialog.
void Q_input_item_opt(std::span<Q_input_item> items, int index, const char* label, int n_options,
                      const char* const* options, int position);
/// The same for a list, whose texts must outlive the dialog unchanged.
void Q_input_item_opt(std::span<Q_input_item> items, int index, const char* label,
                      const Q_string_list& options, int position);

/// 't', a choice among texts that the item keeps copies of. Q_input releases them, so the item can
/// be shown once.
void Q_input_item_temp_opt(std::span<Q_input_item> items, int index, const char* label,
                           int position, Q_string_list options);
/// The same with the texts, n_options C strings, as arguments. Mind the order: the default position
/// comes before the number of options.
template <std::same_as<char>... Chars>
void Q_input_item_temp_opt(std::span<Q_input_item> items, int index, const char* label,
                           int position, int n_options, const Chars*... options) {
  Q_input_item_temp_opt(items, index, label, position, Q_option_list(n_options, options...));
}

/// 'f', an existing file that matches patterns[0]; `text` is the path of the preselected file,
/// empty for none. The patterns must outlive the dialog.
void Q_input_item_file(std::span<Q_input_item> items, int index, const char* label,
                       const char* text, const char* const* patterns);
/// The same with one pattern, such as "*_p.nii.gz", which the item keeps a copy of.
void Q_input_item_file(std::span<Q_input_item> items, int index, const char* label,
                       const char* text, const char* pattern);

/// 'b', a check box.
void Q_input_item_boolean(std::span<Q_input_item> items, int index, const char* label, bool value);

/// 'v', an MNI coordinate.
void Q_input_item_voxel(std::span<Q_input_item> items, int index, const char* label, std::int16_t x,
                        std::int16_t y, std::int16_t z);
