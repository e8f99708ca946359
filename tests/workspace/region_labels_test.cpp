// The names of the brain regions, against a list of their own.

#include "workspace/files/region_labels.h"

#include <cmath>
#include <limits>
#include <set>
#include <sstream>

#include "each.h"
#include "test_folder.h"

namespace {

std::string label(float value) {
  Q_string text("old");
  Q_get_mni_label(text, value);
  return text.str();
}

TEST(RegionLabels, AreThoseOfTheList) {
  std::set<std::string> listed;
  std::istringstream lines(read_text(KVO_REGIONS_FILE));
  for (std::string line; std::getline(lines, line);) {
    const std::size_t tab = line.find('\t');
    const int number = std::stoi(line.substr(0, tab));
    const std::string text = line.substr(tab + 1);
    EXPECT_EQ(label(static_cast<float>(number)), text);
    EXPECT_EQ(label(static_cast<float>(number) + 0.47F), text + ", BA 47");
    EXPECT_EQ(kvo_region_number(text), number) << text;
    listed.insert(text);
  }
  EXPECT_EQ(listed.size(), 179U);
  EXPECT_EQ(kvo_region_texts(), Q_string_list(listed.begin(), listed.end())) << "in byte order";
  EXPECT_EQ(kvo_region_number("(undefined)") + kvo_region_number(""), 0);
}

TEST(RegionLabels, OfAtlasValues) {
  const std::string parietal = "Right inferior parietal (excluding supramarginal and angular) gyri";
  expect_each<float, std::string>(label,
                                  {{1.04F, "Left precentral gyrus, BA 4"},
                                   {1.4F, "Left precentral gyrus, BA 40"},
                                   {62.004F, parietal},
                                   {62.006F, parietal + ", BA 1"},
                                   {178.99F, "Left superior longitudinal fasciculus III, BA 99"},
                                   {0, "(undefined)"},
                                   {-3, "(undefined)"},
                                   {180.05F, "(undefined), BA 5"},
                                   {-3.05F, "(undefined), BA -5"},
                                   {-3e38F, "(undefined)"},
                                   {std::numeric_limits<float>::infinity(), "(undefined)"},
                                   {std::nanf(""), "(undefined)"}});
}

}  // namespace
