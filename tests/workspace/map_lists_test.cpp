// The engine's lists: what each kind of line becomes, and what a second load leaves.

#include "workspace/files/map_lists.h"

#include "each.h"
#include "test_folder.h"
#include "workspace/files/file_names.h"

namespace {

TEST(MapLists, ReadNames) {
  expect_each<std::string, Q_string_list>(kvo_read_map_names,
                                          {{"", {}},
                                           {"\n \t\r\n", {}},
                                           {" My \t mean  map \r\n\r\nb\n", {"My mean map", "b"}},
                                           {"b\na\nb_n\xff%s", {"b", "a", "b_n", "%s"}}});
  expect_each<std::string, Q_string_list>(
      kvo_read_nd_names,
      {{"", {}},
       {"\n \nname n\n\nb 500\n a\t20 x\n", {"a", "b"}},
       {"name\nMy mean\na_n 1\na_nb 2\n_n 3\nn 4\na_N 5\n", {"My", "a_N", "a_nb", "n"}},
       {"b_n\r\nb\r\n\r\nB\r\n10\n9\nb", {"10", "9", "B", "b", "b"}}});
}

TEST(MapLists, LoadsReplaceTheNamesOfBefore) {
  const Test_folder folder;
  EXPECT_EQ(kvo3_load_nd_names(), 0);
  EXPECT_EXIT(kvo_load_kvo_maps_txt(), testing::ExitedWithCode(1),
              "File 'kvo_maps\\.txt' not found\\.");
  for (const Q_string_list& names : {Q_string_list{"c", "b", "a"}, Q_string_list{"d"}}) {
    std::string content;
    for (const std::string& name : names) content += name + "\n";
    write_text("kvo_maps.txt", content);
    write_text("kvo_nd.txt", "name\n" + content);
    kvo_load_kvo_maps_txt();
    EXPECT_EQ(kvo_vs_maps, names);
    EXPECT_EQ(kvo_maps, std::ssize(names));
    EXPECT_EQ(kvo3_load_nd_names(), std::ssize(names));
  }
  std::filesystem::remove(KVO_ND_FILE);
  EXPECT_EQ(kvo3_load_nd_names(), 0);
  EXPECT_EQ(kvo_vs_nds, Q_string_list{"d"});
  EXPECT_EQ(kvo_nds, 1);
}

}  // namespace
