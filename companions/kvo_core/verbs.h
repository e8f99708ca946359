#pragma once

// All verbs of the command language. Each verb that works has a file of its own, which defines what
// it checks and what it does; the table here says all else.

#include <span>

#include "companions/kvo_core/command.h"

std::span<const Verb> all_verbs();

/// Throws Refusal when the verb does not exist yet or the command cannot be carried out.
void check_command(const Command& command);

void check_pp(const Command& command);
void run_pp(const Command& command);
void check_mean(const Command& command);
void run_mean(const Command& command);
