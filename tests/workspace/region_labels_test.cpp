// The names of the brain regions, against a list of their own.

#include "workspace/files/region_labels.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <map>
#include <set>
#include <sstream>

#include "test_folder.h"

namespace {

std::string label(float value) {
  Q_string text("old");
  Q_get_mni_label(text, value);
  return text.str();
}

/// The regions of the list, by number.
std::map<int, std::string> listed_regions() {
  std::map<int, std::string> regions;
  std::istringstream lines(read_text(KVO_REGIONS_FILE));
  for (std::string line; std::getline(lines, line);) {
    const std::size_t tab = line.find('\t');
    regions[std::stoi(line.substr(0, tab))] = line.substr(tab + 1);
  }
  return regions;
}

TEST(RegionLabels, AreThoseOfTheList) {
  const std::map<int, std::string> regions = listed_regions();
  ASSERT_EQ(regions.size(), 179);
  ASSERT_EQ(regions.begin()->first, 1);
  ASSERT_EQ(regions.rbegin()->first, 179);
  std::set<std::string> distinct;
  for (const auto& [number, text] : regions) {
    EXPECT_EQ(label(static_cast<float>(number)), text);
    EXPECT_EQ(kvo_region_number(text), number) << text;
    EXPECT_EQ(label(static_cast<float>(number) + 0.47F), text + ", BA 47");
    distinct.insert(text);
  }
  EXPECT_EQ(distinct.size(), 179);
}

TEST(RegionLabels, OfAtlasValues) {
  const struct {
    float value;
    const char* text;
  } cases[] = {
      {41.0F, "Left amygdala"},
      {42.0F, "Right amygdala"},
      {117, "Anterior commissure"},
      {179, "Right superior longitudinal fasciculus III"},
      {1.04F, "Left precentral gyrus, BA 4"},
      {1.4F, "Left precentral gyrus, BA 40"},
      {178.99F, "Left superior longitudinal fasciculus III, BA 99"},
      {62.004F, "Right inferior parietal (excluding supramarginal and angular) gyri"},
      {62.006F, "Right inferior parietal (excluding supramarginal and angular) gyri, BA 1"},
      {0, "(undefined)"},
      {180, "(undefined)"},
      {-3, "(undefined)"},
      {180.05F, "(undefined), BA 5"},
      {-3.05F, "(undefined), BA -5"},
      {3e9F, "(undefined)"},
      {-3e38F, "(undefined)"},
      {std::numeric_limits<float>::infinity(), "(undefined)"},
      {std::nanf(""), "(undefined)"},
  };
  for (const auto& c : cases) EXPECT_EQ(label(c.value), c.text) << c.value;
  EXPECT_EQ(kvo_region_number("(undefined)"), 0);
  EXPECT_EQ(kvo_region_number(""), 0);
}

TEST(RegionLabels, AreSortedByByte) {
  const Q_string_list texts = kvo_region_texts();
  const std::map<int, std::string> regions = listed_regions();
  std::set<std::string> sorted;
  for (const auto& [number, text] : regions) sorted.insert(text);
  EXPECT_EQ(texts, Q_string_list(sorted.begin(), sorted.end()));
  EXPECT_EQ(texts.front(), "Anterior commissure");
  for (std::size_t i = 1; i <= 8; ++i) EXPECT_TRUE(texts[i].starts_with("Cerebellum, verm")) << i;
  EXPECT_EQ(texts[9], "Corpus callosum");
  EXPECT_TRUE(texts[10].starts_with("Left"));
  EXPECT_EQ(texts.back(), "Right thalamus");
}

}  // namespace
