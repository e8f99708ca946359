#pragma once

// All verbs of the command language. Each verb has a file of its own, which defines what
// it checks and what it does; the table here says all else.

#include <span>
#include <string>

#include "engine/base/command.h"
#include "engine/verbs/verbs_layer.h"

namespace kvo::verbs {

std::span<const Verb> all_verbs();

/// A command. Throws Refusal as parse_command() does, and when the environment asks for a part of
/// the randomizations of one that has none.
Command command_of(const std::string& text);

/// After a command: renews the overview of the folder and says what it is called, or why it is not
/// renewed, which is no fault of the command.
void say_overview();

void check_pp(const Command& command);
void run_pp(const Command& command);
void check_threshold(const Command& command);
void run_threshold(const Command& command);
void check_jackknife(const Command& command);
void run_jackknife(const Command& command);
void check_multi(const Command& command);
void run_multi(const Command& command);
void check_mean(const Command& command);
void run_mean(const Command& command);
void check_lm(const Command& command);
void run_lm(const Command& command);
void check_mask_label(const Command& command);
void run_mask_label(const Command& command);
void check_mask_coordinate(const Command& command);
void run_mask_coordinate(const Command& command);
void check_extract(const Command& command);
void run_extract(const Command& command);
void check_import(const Command& command);
void run_import(const Command& command);
void check_export(const Command& command);
void run_export(const Command& command);
void check_globals(const Command& command);
void run_globals(const Command& command);

}  // namespace kvo::verbs
