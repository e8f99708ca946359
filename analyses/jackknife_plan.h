#pragma once

// Which studies a jackknife leaves out, and the names of its maps.

#include <string>
#include <vector>

#include "workspace/files/text_table.h"

/// The mean without one study.
struct Kvo_jackknife_run {
  long column;      ///< the study's column in the study table
  std::string map;  ///< at most 60 bytes, no other run's, and not that of a negative tail
};

struct Kvo_jackknife_plan {
  std::string name;  ///< the analysis' name, cut so that the maps' names fit
  std::vector<Kvo_jackknife_run> runs;
};

/// The runs of a jackknife over the studies whose value of the filter, an indicator, is a number
/// other than 0; over all studies when the filter is empty. The name is a safe one. A variable that
/// is not in the study table, or "study" missing, is a fatal error.
Kvo_jackknife_plan kvo_plan_jackknife(const Q_table& study_table, const std::string& name,
                                      const std::string& filter);
