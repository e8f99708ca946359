// What no dialog shows of the choices and commands of the analyses.

#include <gtest/gtest.h>

#include "analyses/create_mask.h"
#include "analyses/extract.h"
#include "analyses/pp.h"
#include "analyses/threshold.h"
#include "workspace/files/region_labels.h"

namespace {

TEST(Composed, NeedsWhatALongListMayLeaveOpen) {
  const std::pair<Kvo_composed, const char*> cases[] = {
      {kvo_compose_pp({"", 1, 20, "m", 1}), "correlation template"},
      {kvo_compose_pp({"t", 1, 20, "", 1}), "mask"},
      {kvo_compose_threshold({"", 0.005F, 1, 10}), "map"},
      {kvo_compose_label_mask("", "name"), "brain region"},
      {kvo_compose_extract(""), "mask"},
  };
  for (const auto& [composed, missing] : cases) {
    EXPECT_EQ(composed.refusal, Q_format("Please select the %s and try again.", missing).str());
    EXPECT_EQ(composed.comment + composed.command, "");
  }
}

TEST(Composed, MasksOfAllRegionsHaveNamesThatCommandsTake) {
  EXPECT_EQ(kvo_region_texts().size(), 179U);
  for (const std::string& region : kvo_region_texts()) {
    const Kvo_composed mask = kvo_compose_label_mask(region, "");
    EXPECT_EQ(mask.refusal, "") << region;
    EXPECT_EQ(mask.command.find('"'), std::string::npos) << mask.command;
  }
}

TEST(Composed, ModalitiesHaveTheirTemplatesAndMasks) {
  std::string all;
  for (int position = 0; position <= 8; ++position) {
    const Kvo_modality& modality = kvo_modality(position);
    all += std::string(modality.correlation_template) + " " + modality.mask +
           (modality.needs_own_steps ? " TBSS\n" : "\n");
  }
  EXPECT_EQ(all,
            "gray_matter gray_matter\n"  // none: as for the last one
            "fractional_anisotropy white_matter\n"
            "fractional_anisotropy tbss TBSS\n"
            "gray_matter gray_matter\n"
            "cerebrospinal_fluid cerebrospinal_fluid\n"
            "gray_matter gray_matter\n"
            "white_matter white_matter\n"
            "gray_matter gray_matter\n"
            "gray_matter gray_matter\n");
}

}  // namespace
