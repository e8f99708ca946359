#pragma once

// Randomizations in parts that different processes make, on as many machines as there are.
//
// With KVO_SHARD=2/8 in its environment a command makes the second of eight parts of its
// randomizations and leaves a file of what they have come to. Without it the command takes what it
// finds of such files, makes the rest itself, and leaves the same bytes as if it had made all.

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "engine/inference/inference_layer.h"
#include "engine/inference/tally.h"

namespace kvo::inference {

inline constexpr const char* part_variable = "KVO_SHARD";

/// One of several parts of the randomizations, which are dealt out one after the other.
struct Part {
  std::size_t number = 1, of = 1;
  [[nodiscard]] bool has(std::size_t randomization) const {
    return randomization % of == number - 1;
  }
};

/// The part that the environment asks for; nothing when it asks for none. Throws Refusal when it
/// asks for what is no part.
std::optional<Part> asked_part();

/// A part that has been made, and its file.
struct MadePart {
  Part part;
  std::string file;
};

/// Who makes which randomizations.
struct Shared {
  std::optional<Part> only;    ///< this process makes no others
  std::vector<MadePart> made;  ///< by others; none of them has what another has
  std::vector<Tally>
      tallies;  ///< what all of those have come to for each coefficient; none without
  /// Of so many randomizations those that this process makes, in order.
  [[nodiscard]] std::vector<std::size_t> numbers_to_make(std::size_t all) const;
  /// Adds what the others have come to for a coefficient to what this process has. Throws Refusal,
  /// naming a file, when theirs is of another map.
  void add_others(std::size_t coefficient, Tally& own) const;
};

/// " (500 times)", or how many of them this process makes.
std::string times_text(std::size_t made, std::size_t all);

/// "MyMean_part_2_of_8.kvo"
std::string part_file(const std::string& name, const Part& part);

/// Leaves the file of a part in the working folder. The key tells what the randomizations depend
/// on. Throws Refusal when it cannot be written.
void write_part(const std::string& name, const Part& part, const std::string& key,
                std::span<const Tally> tallies);

/// The parts of an analysis of that name and key in the working folder, with so many coefficients,
/// added up as they are read: there may be thousands of them. Tells the user of those that are not
/// taken, as their key is another or their randomizations have been taken already. Throws Refusal,
/// naming the file, when one is damaged.
Shared read_parts(const std::string& name, const std::string& key, std::size_t coefficients);

}  // namespace kvo::inference
