#include "engine_fixture.h"

class ConfigTest : public EngineTest {};

TEST_F(ConfigTest, SetsReadsAndDeletesDgs) {
  std::uint16_t flags = 9;
  std::uint32_t buckets = 9, type = 9, interval = 9;
  zor_process_attr_t all = {&flags, &buckets, &type, &interval};
  zor_process_attr_t none = {};
  EXPECT_EQ(SetDg(0, "a", nullptr), 1u);
  EXPECT_EQ(SetDg(3, "a", &all), 4u);
  EXPECT_EQ(SetDg(0, nullptr, &none), 1u);
  EXPECT_EQ(SetDg(0, "a", &none), 0u);
  EXPECT_EQ(SetDg(3, "a", &all), 0u);
  EXPECT_EQ(std::tuple(flags, buckets, type, interval), std::tuple(0, 100u, 0u, 0u));

  flags = 2, buckets = 7, interval = 5;
  zor_process_attr_t without_type = {&flags, &buckets, nullptr, &interval};
  EXPECT_EQ(SetDg(0, "a", &without_type), 0u);
  flags = 1;
  EXPECT_EQ(SetDg(0, "a", &without_type), 0u);
  EXPECT_EQ(flags, 3);  // added, and written back
  flags = 1;
  EXPECT_EQ(SetDg(1, "a", &all), 0u);
  EXPECT_EQ(flags, 2);
  EXPECT_EQ(SetDg(3, "a", &all), 0u);
  EXPECT_EQ(std::tuple(flags, buckets, type, interval), std::tuple(2, 7u, 0u, 0u));  // no type: interval not read
  type = 2, interval = 5;
  EXPECT_EQ(SetDg(0, "a", &all), 0u);
  type = 1;
  zor_process_attr_t type_alone = {nullptr, nullptr, &type, nullptr};
  EXPECT_EQ(SetDg(0, "a", &type_alone), 0u);  // the interval stays
  type = interval = 0;
  EXPECT_EQ(SetDg(3, "a", &all), 0u);
  EXPECT_EQ(std::tuple(type, interval), std::tuple(1u, 5u));

  EXPECT_EQ(SetDg(1, "a", &none), 0u);  // nothing to clear, nothing deleted
  EXPECT_EQ(SetDg(1, "b", nullptr), 4u);
  EXPECT_EQ(SetDg(2, "b", nullptr), 4u);
  EXPECT_EQ(SetDg(1, "a", nullptr), 0u);
  EXPECT_EQ(SetDg(3, "a", &all), 4u);
  EXPECT_EQ(SetDg(5, "a", &all), 3u);
  EXPECT_EQ(SetDg(3, "a", nullptr), 1u);
  EXPECT_EQ(zor_process_engine_set_dg(&engine, 0, nullptr, &all), 1u);
}

TEST_F(ConfigTest, WalksEveryLevelInOrder) {
  zor_process_attr_t none = {};
  for (const char *dg : {"ifstats", "b", "c"}) ASSERT_EQ(SetDg(0, dg, &none), 0u);
  for (const char *object : {"rx", "tx", "err"}) ASSERT_EQ(MakeObject(object, 1), 0u);
  for (const char *instance : {"eth0", "eth1", "eth0"}) ASSERT_EQ(AddInstance("rx", instance), 0u);  // kept once

  const auto walk = [](auto next, std::uint32_t end) {
    std::string names;
    const char *name = nullptr;
    std::uint32_t result;
    while ((result = next(&name)) == 0) names += std::string(name) + " ";
    EXPECT_EQ(result, end);
    EXPECT_EQ(name, nullptr);
    name = "unknown";
    EXPECT_EQ(next(&name), end);
    EXPECT_EQ(name, nullptr);
    return names;
  };
  zor_process_object_attr_t no_attr = {};
  EXPECT_EQ(walk([&](const char **name) { return zor_process_engine_set_dg(&engine, 4, name, &none); }, 4),
            "ifstats b c ");
  EXPECT_EQ(
      walk([&](const char **n) { return zor_process_engine_set_object(&engine, 4, "ifstats", n, &no_attr); }, 5),
      "rx tx err ");
  EXPECT_EQ(
      walk([&](const char **n) { return zor_process_engine_set_object_instance(&engine, 4, "ifstats", "rx", n); },
           6),
      "eth0 eth1 ");

  const char *unknown = "unknown";
  EXPECT_EQ(zor_process_engine_set_dg(&engine, 3, &unknown, &none), 4u);
  EXPECT_STREQ(unknown, "unknown");
  EXPECT_EQ(zor_process_engine_set_object_instance(&engine, 3, "ifstats", "tx", &unknown), 6u);
  EXPECT_EQ(zor_process_engine_set_object_instance(&engine, 4, "ifstats", "tx", &unknown), 6u);
  EXPECT_STREQ(unknown, "unknown");  // none was ever configured
  EXPECT_EQ(zor_process_engine_set_object_instance(&engine, 2, "ifstats", "rx", &unknown), 3u);
  EXPECT_EQ(zor_process_engine_set_object_instance(&engine, 1, "ifstats", "rx", &unknown), 6u);
  EXPECT_EQ(zor_process_engine_set_object_instance(&engine, 0, "ifstats", "none", &unknown), 5u);
  EXPECT_EQ(zor_process_engine_set_object(&engine, 7, "none", &unknown, nullptr), 4u);
  EXPECT_EQ(zor_process_engine_set_object(&engine, 2, "ifstats", &unknown, nullptr), 3u);
}

TEST_F(ConfigTest, SetsReadsAndDeletesObjects) {
  MakeDg(0);
  const char *name = "rx";
  std::uint32_t id = 0, kind = 1, range_type = 3;
  std::uint64_t range[2] = {static_cast<std::uint64_t>(-5), 5};
  zor_process_object_attr_t attr = {&id, nullptr, &kind, &range_type, nullptr};
  const auto set = [&](std::uint32_t operation) {
    return zor_process_engine_set_object(&engine, operation, "ifstats", &name, &attr);
  };
  EXPECT_EQ(set(0), 1u);  // a range type without a range: created and identified all the same
  EXPECT_NE(id, 0u);
  EXPECT_STREQ(zor_process_engine_get_object_name_byid(&engine, "ifstats", id), "rx");
  kind = 9, range_type = 9;
  EXPECT_EQ(set(3), 0u);
  EXPECT_EQ(std::tuple(kind, range_type), std::tuple(0u, 0u));

  kind = 1, range_type = 3;
  attr.range = range;
  EXPECT_EQ(set(0), 0u);
  range[0] = range[1] = kind = range_type = 0;
  EXPECT_EQ(set(3), 0u);
  EXPECT_EQ(std::tuple(kind, range_type, range[0], range[1]),
            std::tuple(1u, 3u, static_cast<std::uint64_t>(-5), 5u));
  attr.range = nullptr;
  EXPECT_EQ(set(3), 1u);
  range_type = 0;
  attr.range = range;
  EXPECT_EQ(set(0), 0u);  // takes the range away
  range[0] = 77;
  EXPECT_EQ(set(3), 0u);
  EXPECT_EQ(std::tuple(range_type, range[0]), std::tuple(0u, 77u));

  std::uint16_t flags = 6;
  zor_process_attr_t common = {&flags, nullptr, nullptr, nullptr};
  attr.common = &common;
  EXPECT_EQ(set(0), 0u);
  flags = 4;
  EXPECT_EQ(set(1), 0u);
  EXPECT_EQ(flags, 2);
  flags = 0;
  EXPECT_EQ(set(3), 0u);
  EXPECT_EQ(flags, 2);
  EXPECT_EQ(zor_process_engine_set_object(&engine, 1, "ifstats", &name, nullptr), 0u);
  name = "rx";  // the record's own name went with it
  EXPECT_EQ(set(3), 5u);
  EXPECT_EQ(set(1), 5u);
}

TEST_F(ConfigTest, HandsOutIdentifiers) {
  MakeDg(0);
  const auto identify = [&](const char *name, std::uint32_t id) {
    zor_process_object_attr_t attr = {&id, nullptr, nullptr, nullptr, nullptr};
    EXPECT_EQ(zor_process_engine_set_object(&engine, 0, "ifstats", &name, &attr), 0u);
    return id;
  };
  const std::uint32_t first = identify("rxbytes", 0);
  EXPECT_EQ(identify("taken", first + 1), first + 1);
  EXPECT_EQ(identify("next", 0), first + 2);
  EXPECT_EQ(zor_process_object_get_id_byname(&engine, "ifstats", "rx"), first);  // a beginning is enough
  EXPECT_EQ(zor_process_object_get_id_byname(&engine, "ifstats", ""), first);
  EXPECT_EQ(zor_process_object_get_id_byname(&engine, "ifstats", "rxbytes2"), 0u);
  EXPECT_EQ(zor_process_object_get_id_byname(&engine, "none", "rx"), 0u);
  EXPECT_EQ(zor_process_engine_get_object_name_byid(&engine, "ifstats", 4000000000u), nullptr);
  EXPECT_STREQ(zor_proc_get_error_string_list(0), "success");
  EXPECT_STREQ(zor_proc_get_error_string_list(14), "ZOR_PROCESS_ERROR_INVALID_POLL_INTERVAL");
  EXPECT_STREQ(zor_proc_get_error_string_list(16), "Max Limit");
  EXPECT_NE(zor_proc_get_error_string_list(17), nullptr);
}

// What is missing or unknown, at every level and in every call.
TEST_F(ConfigTest, AnswersForWhatIsNotThere) {
  const char *none = nullptr, *unknown = "unknown";
  std::uint32_t range_type = 0;
  zor_process_attr_t attr = {};
  zor_process_object_attr_t object_attr = {}, range_attr = {nullptr, nullptr, nullptr, &range_type, nullptr};
  MakeDg(0);
  ASSERT_EQ(MakeObject("rx", 1), 0u);
  for (const std::uint32_t operation : {0u, 1u, 2u}) {
    EXPECT_EQ(zor_process_engine_set_dg(&engine, operation, &none, &attr), 1u);
    EXPECT_EQ(zor_process_engine_set_object_instance(&engine, operation, "ifstats", "rx", nullptr), 1u);
    EXPECT_EQ(zor_process_engine_set_object_instance(&engine, operation, "unknown", "rx", &unknown), 4u);
    EXPECT_EQ(zor_process_engine_set_object(&engine, operation, "ifstats", nullptr, &object_attr), 1u);
    if (operation == 2) continue;
    EXPECT_EQ(zor_process_engine_set_object(&engine, operation, "ifstats", &none, &object_attr), 1u);
    EXPECT_EQ(zor_process_engine_set_object_instance(&engine, operation, "ifstats", "rx", &none), 1u);
  }
  EXPECT_EQ(zor_process_engine_set_object_instance(&engine, 1, "ifstats", "rx", &unknown), 6u);  // never had any
  EXPECT_EQ(zor_process_engine_set_dg(nullptr, 0, &unknown, &attr), 1u);
  EXPECT_EQ(zor_process_engine_set_object(nullptr, 0, "ifstats", &unknown, nullptr), 4u);
  EXPECT_EQ(zor_process_engine_set_object(&engine, 3, "ifstats", &none, nullptr), 1u);
  EXPECT_EQ(zor_process_engine_set_object(&engine, 3, "ifstats", &none, &range_attr), 0u);
  EXPECT_STREQ(none, "rx");
  EXPECT_EQ(zor_process_engine_set_object(&engine, 0, "ifstats", &none, nullptr), 0u);  // nothing to set
  EXPECT_EQ(zor_process_engine_set_object(&engine, 1, "ifstats", &none, &object_attr), 0u);
  EXPECT_EQ(zor_process_engine_get_object_name_byid(&engine, "unknown", 1), nullptr);
  EXPECT_EQ(zor_process_object_get_id_byname(&engine, "ifstats", nullptr), 0u);
  zor_process_engine_set_poll_interval(&engine, nullptr, 10);

  // Before the first message there is nothing to clear, to walk or to print; nor is there in another DG.
  zor_process_data_cursor_t cursor = Cursor(), other = {"unknown", nullptr, nullptr, nullptr, 0};
  for (zor_process_data_cursor_t *dg : {&cursor, &other}) {
    EXPECT_EQ(Next(*dg), "(null)");
    EXPECT_EQ(dg->dg, nullptr);
    EXPECT_EQ(
        Printed([&] { zor_process_engine_print_object_instance_data(&engine, dg, nullptr, nullptr, nullptr, 7); }),
        "");
  }
  EXPECT_EQ(zor_process_engine_clear_dg_data(&engine, "ifstats", 7, 0), 0u);
}
