#pragma once

// The working folder: the folder of the meta-analysis that the program works on, which is the
// process's current folder.

#include <string>

/// Why the folder cannot become the working folder, as a message for the user: the settings file
/// cannot be written, or the folder's study table cannot be read. Empty when it can. Ask before
/// anything is changed.
std::string kvo_folder_refusal(const std::string& folder);
/// Enters the folder (or the fatal error "Folder '%s' not found"), makes it the working folder and
/// saves the settings.
void kvo_enter_folder(const char* folder);
/// Shows the version and the working folder as the main window's title.
void kvo_show_title();

/// Shows the working folder's study table, title and batch, and removes what a program that was
/// killed has left there.
void kvo_show_folder();

/// Handler of the menu action that changes the meta-analysis: asks for a folder, enters it and
/// shows its study table, title and batch. Cancel changes nothing.
void kvo3_cd();

/// Enters the working folder that the settings name. When it cannot be entered, or its study table
/// cannot be read (which would end the program at every start), warns in the console and makes the
/// installation root the working folder; the settings file stays as it is.
void kvo3_check_user_dir();
