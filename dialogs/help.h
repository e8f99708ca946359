#pragma once

// What the Help buttons open.

#include "util/q_string.h"

/// Address of the online manual's topic page, to which a topic is appended; set at start-up.
extern Q_string Qs_HelpURL;
/// The topic that Help buttons open now: each handler sets its own before its first dialog.
extern Q_string Qs_HelpTopic;
