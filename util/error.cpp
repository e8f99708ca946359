#include "util/error.h"

#include <cstdio>
#include <cstdlib>

#include "util/q_string.h"

namespace {
Q_error_presenter error_presenter = nullptr;
}

void Q_set_error_presenter(Q_error_presenter presenter) {
  error_presenter = presenter;
}

void Q_error(const char* format, ...) {
  Q_FORMAT_ARGUMENTS(message, format);
  const Q_string text = Q_format(
      "%s.\nThe program will close as this problem could cause fatal errors.", message.c_str());
  // A second error while the first is being shown must not show a second dialog.
  const Q_error_presenter present = error_presenter;
  error_presenter = nullptr;
  if (present != nullptr)
    present(text.c_str());
  else
    std::fprintf(stderr, "%s\n", text.c_str());
  std::exit(1);
}
