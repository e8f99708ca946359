#pragma once

// The dialog that edits the settings.

#include <span>

#include "integrations/brain_viewer.h"

/// Handler of the settings action: asks for the brain viewer and its executable, saves the settings
/// and looks for the viewer. Cancel changes and writes nothing.
void kvo3_settings();
/// The same with the given viewers to choose from.
void kvo_ask_settings(std::span<const Brain_viewer> viewers);
