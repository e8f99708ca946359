#pragma once

// Loading of the study table into the program.

/// Replaces the study table by that of the file ("kvo_table.txt" in the working folder); nothing of
/// the old one is left. A variable that an interrupted jackknife has left is removed, from the file
/// too, and the console says so.
void kvotable_load(const char* path);
