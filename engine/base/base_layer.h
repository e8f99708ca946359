#pragma once

// The ground that every command and companion program stands on: refusals and outcomes, progress,
// cancelling, loops on all processors, outputs that appear together or not at all, small text
// files, the wording of numbers, the command language.
//
// It knows nothing of brains, studies or maps.

namespace kvo::base {}
