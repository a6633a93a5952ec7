// A host program that defines the clock and the data list itself.

#include <ctime>

#include "engine_fixture.h"

namespace {

std::vector<std::string> own_items;

}  // namespace

__attribute__((visibility("default"))) void kel_time_get_timespec_realtime(struct timespec *now) {
  now->tv_sec = 1700000000;
  now->tv_nsec = 0;
}

__attribute__((visibility("default"))) int vamra_edm_datalist_add(std::uint64_t datalist, const char *name,
                                                                  std::int32_t type, std::int32_t flags,
                                                                  const void *text, std::int32_t size) {
  EXPECT_EQ(datalist, 4711u);
  EXPECT_EQ(type, 3);
  EXPECT_EQ(flags, 0);
  EXPECT_EQ(static_cast<std::size_t>(size), std::strlen(static_cast<const char *>(text)) + 1);
  own_items.push_back(std::string(name) + "=" + static_cast<const char *>(text));
  return 0;
}

class OwnPlatformTest : public EngineTest {};

TEST_F(OwnPlatformTest, IsTheOneThatIsCalled) {
  MakeDg(ZOR_PROCESS_FLAG_SUMMARY);
  MakeObject("rxbytes", 0);
  ASSERT_EQ(Template({{"interface", 0}, {"rxbytes", ZOR_PROCESS_DATA_TYPE_INT32}}), 0u);
  for (std::int32_t v : {4, 9, 5}) ASSERT_EQ(Row("eth0", {v}), 0u);
  auto cursor = Cursor();
  EXPECT_EQ(Next(cursor), "ifstats-summary: 1700000000, rxbytes, eth0, 3, 4, 9, 6.000\n");

  zor_process_print_handle_t handle = {4711, 9998, {}, nullptr, 0};
  const zor_process_data_cursor_t dg = Cursor();
  zor_process_engine_print_object_instance_data_with_handle(&engine, &dg, nullptr, nullptr, nullptr, 1, &handle);
  ASSERT_EQ(own_items.size(), 8u);
  EXPECT_EQ(own_items[0], "buf9999=\nObjectname       : rxbytes\n");
  EXPECT_EQ(own_items[1], "buf1000=\nNumber of samples: 1\n");  // names are cut to seven characters
  EXPECT_EQ(handle.buf, nullptr);
  EXPECT_EQ(handle.buf_count, 10006);
}
