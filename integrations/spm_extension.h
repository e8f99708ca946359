#pragma once

// Makes the suite an SPM toolbox, so that it can be started from Matlab.

/// Handler of the SPM action: explains, asks for SPM's toolbox folder, copies this installation
/// into it and shows the Matlab command that completes the work. The current folder is the working
/// folder afterwards. Cancel before the copying creates nothing. What cannot be copied is a fatal
/// error.
void kvo3_spm_extension();
