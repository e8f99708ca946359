#pragma once

// The convergence of two meta-analyses, of different modalities or tasks.

#include <optional>
#include <string>

#include "analyses/composed.h"

/// One of the two meta-analyses.
struct Kvo_multi_study {
  std::string image;  ///< absolute path of its p-value image
  std::string name;   ///< its short name, as typed
};
struct Kvo_multi_pair {
  Kvo_multi_study first;
  Kvo_multi_study second;
};

/// Checks images and short names, and gives names to those that have none, or the same. Returns why
/// the pair cannot be used, for the user; empty when it can.
std::string kvo_check_multi_pair(Kvo_multi_pair& pair);

/// The files in the folder that the copies of the images would replace by something else.
Q_string_list kvo_replaced_by_copies(const std::string& folder, const Kvo_multi_pair& pair);

/// Why the copies of the images cannot be put into the folder, for the user; empty when they can.
std::string kvo_check_results_folder(const std::string& folder, const Kvo_multi_pair& pair);

struct Kvo_multi_answers {
  float probability = 0.0025F;
  float peak = 0.00025F;  ///< probability that the peaks of a cluster reach
  int extent = 10;        ///< voxels
  bool assume_error = true;
  bool better_scenario = true;
  float tolerable = 0.1F;  ///< probability
};
/// The analysis of a pair that has been checked.
Kvo_composed kvo_compose_multi(const Kvo_multi_pair& pair, const Kvo_multi_answers& answers);

/// Handler of the menu action.
void kvo3_multi();
