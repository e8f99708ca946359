#pragma once

// The names of a jackknife's maps, by which they are made and found again.

#include <string>

#include "util/text.h"

/// The longest name of a study that those of its maps can hold.
inline constexpr std::size_t KVO_JACKKNIFE_STUDY_MAX = 58;

struct Kvo_jackknife_names {
  std::string name;    ///< the analysis' name, cut so that the maps' names fit
  Q_string_list maps;  ///< for each study; at most 60 bytes, all differ, none of a negative tail
};

/// The names of the means without one of the studies each, of an analysis with a safe name.
Kvo_jackknife_names kvo_jackknife_names(const std::string& name, const Q_string_list& studies);
