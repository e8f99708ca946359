#pragma once

// The batch: the record of commands in the second console pane, kept in the working folder's batch
// file.

/// Fills the batch pane from the batch file; empties it when there is no such file.
void kvo3_batch_print();
/// Handler of the save action: writes the pane to the batch file and says so. Asks first when the
/// file is not what was loaded or saved last, or has bytes that would be lost.
void kvo3_batch_save();
/// Handler of the run action: names the lines with which the shell would do more than to start the
/// engine, then runs the pane's lines in order; records nothing. Ends with a command that the user
/// cancels, and when the user closes the main window. Does nothing while other work goes on.
void kvo3_batch_run();
