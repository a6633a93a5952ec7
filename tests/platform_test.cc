#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "engine_fixture.h"

// The set held against an ordered list of names under random insertions and removals.
TEST(HashSet, SameAsAList) {
  struct Record {
    void *links[2];
    char *name;
  };
  std::mt19937 random(1);
  std::vector<std::string> names;
  for (int i = 0; i < 500; ++i)
    names.push_back(std::string(static_cast<std::size_t>(i % 40), 'x') + std::to_string(i / 40));
  std::vector<Record> records(names.size());
  std::vector<Record *> expected;
  kel_hashset_t set;
  kel_ext_hash_name_init(&set);
  EXPECT_EQ(kel_ext_hash_name_get(&set, "x"), nullptr);
  EXPECT_EQ(kel_hashset_first(&set), nullptr);
  kel_hashset_remove(&set, &records[0]);
  EXPECT_EQ(kel_hashset_get(&set, &records[0]), nullptr);  // it has no name yet
  for (int step = 0; step < 20000; ++step) {
    const std::size_t i = random() % names.size();
    Record *record = &records[i];
    const auto at = std::find(expected.begin(), expected.end(), record);
    if (at == expected.end() && (step / 3000) % 2 == 0) {
      record->name = names[i].data();
      EXPECT_EQ(kel_hashset_insert(&set, record), 0);
      expected.push_back(record);
    } else if (at != expected.end() && random() % 2) {
      Record twin = {{}, names[i].data()};
      EXPECT_NE(kel_hashset_insert(&set, &twin), 0);
      kel_hashset_remove(&set, &twin);  // not the record that the set holds
      EXPECT_EQ(kel_hashset_get(&set, &twin), record);
    } else if (at != expected.end()) {
      kel_hashset_remove(&set, record);
      expected.erase(at);
    }
    EXPECT_EQ(kel_ext_hash_name_get(&set, names[i].c_str()),
              std::find(expected.begin(), expected.end(), record) == expected.end() ? nullptr : record);
    if (step % 97 == 0) {
      std::vector<Record *> walked;
      for (void *r = kel_hashset_first(&set); r; r = kel_hashset_next(&set, r))
        walked.push_back(static_cast<Record *>(r));
      ASSERT_EQ(walked, expected);
    }
  }
  // A walk in which every second record is removed by the callback.
  struct Context {
    kel_hashset_t *set;
    std::size_t seen;
  } context = {&set, 0};
  kel_hashset_iterate(
      &set,
      [](void *record, void *c) {
        auto &walk = *static_cast<Context *>(c);
        if (walk.seen++ % 2 == 0) kel_hashset_remove(walk.set, record);
      },
      &context);
  EXPECT_EQ(context.seen, expected.size());
  std::size_t left = 0;
  for (void *r = kel_hashset_first(&set); r; r = kel_hashset_next(&set, r)) EXPECT_EQ(r, expected[2 * left++ + 1]);
  EXPECT_EQ(left, expected.size() / 2);
  kel_hashset_free(&set);
  kel_hashset_free(&set);
}

TEST(DataList, KeepsItemsInOrder) {
  const std::uint64_t list = zor_datalist_create();
  for (int i = 0; i < 100; ++i) {
    const std::string text = "line " + std::to_string(i);
    const auto size = static_cast<std::int32_t>(text.size() + 1);
    EXPECT_EQ(vamra_edm_datalist_add(list, "name", 3, 0, text.c_str(), size), 0);
  }
  zor_datalist_item_t item;
  ASSERT_EQ(zor_datalist_get(list, 42, &item), 0);
  EXPECT_EQ(std::tuple(std::string(item.text), std::string(item.name), item.size),
            std::tuple("line 42", "name", 8u));
  EXPECT_NE(zor_datalist_get(list, 100, &item), 0);
  EXPECT_NE(vamra_edm_datalist_add(0, "name", 3, 0, "", 1), 0);
  EXPECT_NE(vamra_edm_datalist_add(list, "name", 3, 0, "", -1), 0);
  EXPECT_EQ(std::tuple(zor_datalist_count(list), zor_datalist_count(0)), std::tuple(100u, 0u));
  zor_datalist_free(list);
  zor_datalist_free(0);
}
