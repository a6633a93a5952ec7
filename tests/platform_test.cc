// Our platform library: sets by name.

#include <algorithm>
#include <random>

#include "engine_fixture.h"

struct Record {
  void *links[2];
  char *name;
};

// Held against a list under random insertions and removals.
TEST(HashSet, SameAsAList) {
  std::mt19937 random(1);
  std::vector<std::string> names;
  for (std::size_t i = 0; i < 500; ++i) names.push_back(std::string(i % 40, 'x') + std::to_string(i / 40));
  std::vector<Record> records(names.size());
  std::vector<void *> expected;
  kel_hashset_t set;
  kel_ext_hash_name_init(&set);
  EXPECT_EQ(kel_ext_hash_name_get(&set, "x"), nullptr);
  kel_hashset_remove(&set, &records[0]);
  EXPECT_EQ(kel_hashset_get(&set, &records[0]), nullptr);  // it has no name yet
  const auto walked = [&] {
    std::vector<void *> met;
    for (void *r = kel_hashset_first(&set); r; r = kel_hashset_next(&set, r)) met.push_back(r);
    return met;
  };
  for (int step = 0; step < 20000; ++step) {
    const std::size_t i = random() % names.size();
    Record *record = &records[i], twin = {{}, names[i].data()};
    const bool there = std::count(expected.begin(), expected.end(), record) != 0;
    if (!there && (step / 3000) % 2 == 0) {
      record->name = names[i].data();
      EXPECT_EQ(kel_hashset_insert(&set, record), 0);
      expected.push_back(record);
    } else if (there && random() % 2) {
      EXPECT_NE(kel_hashset_insert(&set, &twin), 0);
      kel_hashset_remove(&set, &twin);  // not the record that the set holds
      EXPECT_EQ(kel_hashset_get(&set, &twin), record);
    } else if (there) {
      kel_hashset_remove(&set, record);
      std::erase(expected, record);
      EXPECT_EQ(kel_hashset_get(&set, &twin), nullptr);
    }
    if (step % 97 == 0) {
      ASSERT_EQ(walked(), expected);
    }
  }
  // A walk in which every second record is removed by the callback.
  std::pair<kel_hashset_t *, std::size_t> walk = {&set, 0};
  const auto remove = [](void *record, void *context) {
    auto &[of, seen] = *static_cast<decltype(walk) *>(context);
    if (seen++ % 2 == 0) kel_hashset_remove(of, record);
  };
  kel_hashset_iterate(&set, remove, &walk);
  EXPECT_EQ(walk.second, expected.size());
  std::size_t seen = 0;
  std::erase_if(expected, [&](void *) { return seen++ % 2 == 0; });
  EXPECT_EQ(walked(), expected);
  kel_hashset_free(&set);
  kel_hashset_free(&set);
}
