#pragma once

// The lists that dialogs offer, and what a position in them (from 1; 0 for nothing selected) stands
// for.

#include <string>
#include <string_view>

#include "util/text.h"

/// The study table's variables and its indicators, each after "(none)" and in ascending byte order.
Q_string_list kvo_variable_choices();
Q_string_list kvo_indicator_choices();

/// Names of the images in a folder whose file names begin with the prefix and end in ".nii.gz",
/// without either, in the order of the file names.
Q_string_list kvo_image_choices(const char* folder, std::string_view prefix);

/// The chosen entry; empty when nothing is selected.
std::string kvo_chosen(const Q_string_list& list, float position);
/// The chosen variable of a list that begins with "(none)"; empty for that one too.
std::string kvo_chosen_variable(const Q_string_list& list, float position);

/// Position of the name in the list; of the first entry when it is not there.
int kvo_position_or_first(const Q_string_list& list, std::string_view name);
