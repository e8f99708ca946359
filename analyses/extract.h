#pragma once

// Extraction of the studies' values in a mask of the working folder.

#include <string>

#include "analyses/composed.h"

Kvo_composed kvo_compose_extract(const std::string& mask);

/// Handler of the menu action.
void kvo3_extract();
