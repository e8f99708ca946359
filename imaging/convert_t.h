#pragma once

/// Handler of the action "convert_t": opens the web site's page that converts statistics.
void kvo3_convert_t();
