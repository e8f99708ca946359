#pragma once

// Randomizations in parts made by different processes, on any number of machines.
//
// With KVO_SHARD=2/8 in its environment a command makes the second of eight parts of its
// randomizations and leaves a file of their tallies. Without it the command takes the files of this
// kind that it finds, makes the rest itself, and leaves the same bytes as if it had made them all.

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "engine/inference/inference_layer.h"
#include "engine/inference/tally.h"

namespace kvo::inference {

inline constexpr const char* part_variable = "KVO_SHARD";

/// One of several parts of the randomizations, which are dealt out in turn.
struct Part {
  std::size_t number = 1, of = 1;
  [[nodiscard]] bool has(std::size_t randomization) const {
    return randomization % of == number - 1;
  }
};

/// The part that the environment asks for; nothing when it asks for none. Throws Refusal when what
/// it asks for is not a part.
std::optional<Part> asked_part();

/// A part that has been made, and its file.
struct MadePart {
  Part part;
  std::string file;
};

/// Who makes which randomizations.
struct Shared {
  std::optional<Part> only;    ///< the only one that this process makes
  std::vector<MadePart> made;  ///< by others, without overlap
  std::vector<Tally> tallies;  ///< the sums of all of those for each coefficient; empty without any
  /// The numbers, among all randomizations, of those that this process makes, in order.
  [[nodiscard]] std::vector<std::size_t> numbers_to_make(std::size_t all) const;
  /// Adds the others' tally for a coefficient to that of this process. Throws Refusal, naming a
  /// file, when theirs is of another map.
  void add_others(std::size_t coefficient, Tally& own) const;
};

/// " (500 times)", or how many of them this process makes.
std::string times_text(std::size_t made, std::size_t all);

/// "MyMean_part_2_of_8.kvo"
std::string part_file(const std::string& name, const Part& part);

/// Leaves the file of a part in the working folder. The key stands for all that the randomizations
/// depend on. Throws Refusal when it cannot be written.
void write_part(const std::string& name, const Part& part, const std::string& key,
                std::span<const Tally> tallies);

/// The parts of an analysis of that name and key in the working folder, with this number of
/// coefficients, added up as they are read: there may be thousands of them. Tells the user about
/// those not taken because their key is different or their randomizations have already been taken.
/// Throws Refusal, naming the file, when one is damaged.
Shared read_parts(const std::string& name, const std::string& key, std::size_t coefficients);

}  // namespace kvo::inference
