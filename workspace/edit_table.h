#pragma once

// The menu action that opens the table editor.

/// Runs the table editor on the working folder's study table, waits until it ends and loads the
/// table again. The user interface is not served meanwhile. An editor that cannot be started, or
/// does not end by itself, gives a console warning.
void kvo3_edit_table();
