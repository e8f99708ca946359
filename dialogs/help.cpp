#include "dialogs/help.h"

Q_string Qs_HelpURL;
Q_string Qs_HelpTopic;
