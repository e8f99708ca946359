#pragma once

// What the answers of an analysis' dialogs come to, in plain text and without a window.

#include <string>
#include <string_view>

#include "util/text.h"

/// A comment and a command for the batch, or the reason why there are none.
struct Kvo_composed {
  std::string refusal;  ///< a message for the user; empty when the command can be run
  std::string comment;  ///< whole comment lines
  std::string command;  ///< one command line
};

/// The reason alone.
Kvo_composed kvo_refusal(std::string reason);
/// Comment and command, or the refusal of the first of the names in them that the command language
/// cannot hold. In the command, names stand as kvo_word() gives them.
Kvo_composed kvo_composed(const Q_string_list& names, const Q_string& comment,
                          const Q_string& command);

/// Refusal of a name that was left empty.
inline constexpr const char* KVO_NO_NAME = "Please enter a name and try again.";
/// Refusal of a choice in which nothing was selected: "Please select the map and try again." of the
/// field "Map".
std::string kvo_not_selected(std::string_view label);

/// The studies that a filter leaves: "all the studies", or "the subgroup '%s'" of an indicator.
std::string kvo_studies(const std::string& filter);
