// The engine's lists: what each kind of line becomes, and what a second load leaves.

#include "workspace/files/map_lists.h"

#include <gtest/gtest.h>

#include "test_folder.h"

namespace {

TEST(MapLists, ReadsMapNames) {
  const struct {
    const char* content;
    Q_string_list names;
  } cases[] = {
      {"", {}},
      {"\n \t\r\n", {}},
      {"b\r\n\r\na\r\n", {"b", "a"}},
      {" My \t mean  map \nb", {"My mean map", "b"}},
      {"b\na\nb\n", {"b", "a", "b"}},
      {"a\xff"
       "b_n\n100%s\n",
       {"a", "b_n", "100%s"}},
  };
  for (const auto& c : cases) EXPECT_EQ(kvo_read_map_names(c.content), c.names) << c.content;
}

TEST(MapLists, ReadsNamesOfNullDistributions) {
  const struct {
    const char* content;
    Q_string_list names;
  } cases[] = {
      {"", {}},
      {"name n\n", {}},
      {"\n \nname n\n\nb 500\na\t20 x\n", {"a", "b"}},
      {"name\nMy mean\na_n 1\na_nb 2\n_n 3\nn 4\na_N 5\n", {"My", "a_N", "a_nb", "n"}},
      {"b_n\nb\nB\n10\n9\nb\n", {"10", "9", "B", "b", "b"}},
      {"name\r\n  z 1\r\n\r\ny 2", {"y", "z"}},
  };
  for (const auto& c : cases) EXPECT_EQ(kvo_read_nd_names(c.content), c.names) << c.content;
}

TEST(MapLists, LoadsReplaceTheNamesOfBefore) {
  const Test_folder folder;
  EXPECT_EQ(kvo3_load_nd_names(), 0);
  write_text(KVO_MAPS_FILE, "c\nb\na\n");
  write_text(KVO_ND_FILE, "name\nc\nb\n");
  kvo_load_kvo_maps_txt();
  EXPECT_EQ(kvo_vs_maps, (Q_string_list{"c", "b", "a"}));
  EXPECT_EQ(kvo_maps, 3);
  EXPECT_EQ(kvo3_load_nd_names(), 2);

  write_text(KVO_MAPS_FILE, "d\n");
  write_text(KVO_ND_FILE, "name\nd\n");
  kvo_load_kvo_maps_txt();
  EXPECT_EQ(kvo_vs_maps, Q_string_list{"d"});
  EXPECT_EQ(kvo_maps, 1);
  EXPECT_EQ(kvo3_load_nd_names(), 1);
  EXPECT_EQ(kvo_vs_nds, Q_string_list{"d"});

  std::filesystem::remove(KVO_ND_FILE);
  EXPECT_EQ(kvo3_load_nd_names(), 0);
  EXPECT_EQ(kvo_vs_nds, Q_string_list{"d"});
  EXPECT_EQ(kvo_nds, 1);
}

TEST(MapLists, HoldAnyNumberOfNames) {
  std::string content;
  for (int i = 0; i < 20000; ++i) content += "map" + std::to_string(i) + "\n";
  EXPECT_EQ(kvo_read_map_names(content).size(), 20000);
  EXPECT_EQ(kvo_read_nd_names(content).size(), 19999);
}

TEST(MapListsDeathTest, NeedTheMapList) {
  const Test_folder folder;
  EXPECT_EXIT(kvo_load_kvo_maps_txt(), testing::ExitedWithCode(1),
              "File 'kvo_maps\\.txt' not found\\.");
}

}  // namespace
