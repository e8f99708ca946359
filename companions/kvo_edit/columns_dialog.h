#pragma once

// Shows what the columns of a table to be imported are taken for, so that it can be changed.

#include <gtk/gtk.h>

#include <optional>
#include <vector>

#include "companions/kvo_edit/edit_layer.h"
#include "engine/formats/delimited.h"
#include "engine/formats/peaks_table.h"

namespace kvo::edit {

/// The roles of the columns of a table, whose first row names them; nothing when cancelled.
std::optional<std::vector<formats::Role>> ask_columns(GtkWidget* window,
                                                      const formats::Delimited& table);

}  // namespace kvo::edit
