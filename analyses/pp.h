#pragma once

// Preprocessing, which begins a meta-analysis.

#include <string>

#include "analyses/composed.h"

/// What preprocessing takes for a kind of images.
struct Kvo_modality {
  const char* option;                ///< as the dialog offers it
  const char* correlation_template;  ///< preselected names of the installation's images
  const char* mask;
  bool needs_own_steps;  ///< its images are prepared in special steps before
};
/// The modality at a position (from 1) of the dialog's list; "Other" for a position beyond it.
const Kvo_modality& kvo_modality(int position);

struct Kvo_pp_answers {
  std::string correlation_template;
  float anisotropy;  ///< 0 to 1
  float fwhm;        ///< mm
  std::string mask;
  float randomizations;
};
Kvo_composed kvo_compose_pp(const Kvo_pp_answers& answers);

/// Handler of the menu action.
void kvo3_pp();
