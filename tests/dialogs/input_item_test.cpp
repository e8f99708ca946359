// The questions and the message of a dialog, before any window exists.

#include "dialogs/input_item.h"

#include <gmock/gmock.h>

#include <array>

#include "dialogs/frame.h"
#include "dialogs/input.h"

namespace {

using testing::ElementsAre;

std::vector<std::string> option_texts(const Q_input_item& item) {
  return {item.options, item.options + item.n_options};
}

TEST(InputItem, ConstructorsSetTheFieldsOfTheirKind) {
  const char* const filters[] = {"(none)", "groupA"};
  std::array<Q_input_item, 7> items;
  Q_input_item_str(items, 0, "Name", "mean");
  Q_input_item_num(items, 1, "Probability", -3, 0.001F, 0.5F, 0.005F);
  Q_input_item_opt(items, 2, "Filter", 2, filters, 2);
  Q_input_item_temp_opt(items, 3, "Space", 1, 3, "Keep", "MNI", "Talairach");
  Q_input_item_file(items, 4, "Image", "/data/a_p.nii.gz", filters);
  Q_input_item_boolean(items, 5, "Jackknife", true);
  Q_input_item_voxel(items, 6, "Coordinate", -70, 68, 5);

  std::string kinds;
  std::vector<std::string> labels;
  for (const Q_input_item& item : items) {
    kinds += item.kind;
    labels.push_back(item.label.str());
  }
  EXPECT_EQ(kinds, "snotfbv");
  EXPECT_THAT(labels, ElementsAre("Name", "Probability", "Filter", "Space", "Image", "Jackknife",
                                  "Coordinate"));
  EXPECT_EQ(items[0].text, "mean");
  EXPECT_EQ(items[1].precision, -3);
  EXPECT_EQ(items[1].min, 0.001F);
  EXPECT_EQ(items[1].max, 0.5F);
  EXPECT_EQ(items[1].value, 0.005F);
  EXPECT_EQ(items[2].options, filters) << "the caller's array itself";
  EXPECT_EQ(items[2].n_options, 2);
  EXPECT_EQ(items[2].value, 2);
  EXPECT_THAT(option_texts(items[3]), ElementsAre("Keep", "MNI", "Talairach"));
  EXPECT_EQ(items[3].value, 1);
  EXPECT_EQ(items[4].text, "/data/a_p.nii.gz");
  EXPECT_EQ(items[4].options, filters);
  EXPECT_EQ(items[5].value, 1);
  EXPECT_EQ(items[6].voxel, (Q_voxel{-70, 68, 5}));
}

TEST(InputItem, KeepsFieldsThatItsKindDoesNotUse) {
  std::array<Q_input_item, 1> items;
  items[0].text = "left";
  items[0].precision = 4;
  items[0].voxel = {1, 2, 3};
  Q_input_item_boolean(items, 0, "Jackknife", false);
  EXPECT_EQ(items[0].text, "left");
  EXPECT_EQ(items[0].precision, 4);
  EXPECT_EQ(items[0].voxel, (Q_voxel{1, 2, 3}));
}

TEST(InputItem, OwnsTheTextsOfATemporaryChoiceAndOnlyPointsAtAList) {
  std::array<Q_input_item, 3> items;
  Q_string_list masks = {"mask_a.nii.gz", "mask_b.nii.gz"};
  {
    std::string short_lived = "Convert to 30 degrees of freedom";
    Q_input_item_temp_opt(items, 0, "Values", 1, 2, "Keep", short_lived.c_str());
    Q_input_item_file(items, 1, "Image", "", short_lived.c_str());
    short_lived.assign(short_lived.size(), '?');
  }
  Q_input_item_opt(items, 2, "Mask", masks, 1);
  std::array<Q_input_item, 3> moved = std::move(items);
  EXPECT_THAT(option_texts(moved[0]), ElementsAre("Keep", "Convert to 30 degrees of freedom"));
  EXPECT_STREQ(moved[1].options[0], "Convert to 30 degrees of freedom");
  EXPECT_THAT(option_texts(moved[2]), ElementsAre("mask_a.nii.gz", "mask_b.nii.gz"));
  EXPECT_EQ(moved[2].options[1], masks[1].c_str()) << "the caller's texts, not copies";
}

TEST(InputItem, HoldsNoMoreThanAStringOfTheSystemDoes) {
  std::array<Q_input_item, 1> items;
  Q_input_item_str(items, 0, "Name", std::string(60000, 'x').c_str());
  EXPECT_EQ(items[0].text.size(), Q_STRING_MAX);
  EXPECT_LE(sizeof(Q_input_item), 256U) << "arrays of items live on the stack";
}

TEST(InputItem, RefusesAnUnknownKindByName) {
  std::array<Q_input_item, 1> items;
  Q_input_item_str(items, 0, "Name", "a");
  items[0].kind = 'x';
  EXPECT_EXIT(Q_input("X", 1, items), testing::ExitedWithCode(1), "'Name'.*unknown kind 'x'");
}

TEST(Message, SplitsIntoTitleAndExplanation) {
  struct {
    const char* message;
    const char* title;
    const char* explanation;
  } const cases[] = {
      {"SETTINGS", "SETTINGS", ""},
      {"SETTINGS\n", "SETTINGS", ""},
      {"MEAN\nfirst line\nsecond line", "MEAN", "first line\nsecond line"},
      {"MEAN\n\nafter an empty line", "MEAN", "\nafter an empty line"},
      {"MEAN\nends in a line feed\n", "MEAN", "ends in a line feed\n"},
      {"\n\nTITLE\ntext", "TITLE", "text"},
      {"", "", ""},
      {"\n\n", "", ""},
  };
  for (const auto& [message, title, explanation] : cases) {
    const Q_message_parts parts = Q_split_message(message);
    EXPECT_EQ(parts.title, title) << message;
    EXPECT_EQ(parts.explanation, explanation) << message;
  }
}

}  // namespace
