#pragma once

// What a command leaves for its user: maps with their lines in the folder's lists, tables, and what
// a report tells of them.
//
// It knows no verb: which command it was is handed to it.

#include "engine/report/report_layer.h"

namespace kvo::results {
using namespace report;
}
