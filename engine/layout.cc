// Records have the promised fields at the promised places, with natural alignment: what programs in other languages
// and real platforms build on. Nothing here but assertions.

#include <cstddef>

#include "zor/process.h"

#define AT(record, field, offset) static_assert(offsetof(record, field) == (offset), #record "." #field)
#define SIZE(record, size) static_assert(sizeof(record) == (size), #record)

SIZE(kel_hashset_t, 8);
AT(zor_process_engine_t, dgs, 8);
SIZE(zor_process_engine_t, 16);

AT(zor_process_dg_t, name, 16);
AT(zor_process_dg_t, flags, 24);
AT(zor_process_dg_t, no_of_buckets, 28);
AT(zor_process_dg_t, clear_interval_type, 32);
AT(zor_process_dg_t, clear_interval, 36);
AT(zor_process_dg_t, objects, 40);
AT(zor_process_dg_t, poll_interval, 48);
AT(zor_process_dg_t, key_column, 52);
AT(zor_process_dg_t, oper_entries, 56);
AT(zor_process_dg_t, poll_count, 64);
AT(zor_process_dg_t, status, 68);
AT(zor_process_dg_t, no_of_samples, 72);
AT(zor_process_dg_t, poll_state, 80);

AT(zor_process_object_t, name, 16);
AT(zor_process_object_t, id, 24);
AT(zor_process_object_t, dg_name, 32);
AT(zor_process_object_t, flags, 40);
AT(zor_process_object_t, no_of_buckets, 44);
AT(zor_process_object_t, clear_interval_type, 48);
AT(zor_process_object_t, clear_interval, 52);
AT(zor_process_object_t, value_kind, 56);
AT(zor_process_object_t, range_type, 60);
AT(zor_process_object_t, range, 64);
AT(zor_process_object_t, instances, 72);

AT(zor_process_object_oper_entry_t, column, 24);
AT(zor_process_object_oper_entry_t, flags, 28);
AT(zor_process_object_oper_entry_t, dg_name, 32);
AT(zor_process_object_oper_entry_t, data_type, 40);
AT(zor_process_object_oper_entry_t, instances, 48);

AT(zor_process_data_cursor_t, dg, 8);
AT(zor_process_data_cursor_t, oper_entry, 16);
AT(zor_process_data_cursor_t, entry, 24);
AT(zor_process_data_cursor_t, flags, 32);

AT(zor_process_attr_t, clear_interval, 24);
AT(zor_process_object_attr_t, range, 32);

AT(zor_process_msg_t, kind, 8);
AT(zor_process_msg_t, count, 12);
AT(zor_process_msg_t, columns, 16);
AT(zor_process_column_t, type, 8);
AT(zor_process_column_t, width, 16);
AT(zor_process_column_t, flags, 20);
AT(zor_process_cell_t, length, 4);
AT(zor_process_cell_t, value, 8);

AT(zor_process_print_handle_t, buf_count, 8);
AT(zor_process_print_handle_t, buf_name, 12);
AT(zor_process_print_handle_t, buf, 24);
AT(zor_process_print_handle_t, buf_len, 32);

/* w is the width of the variant's value type in bytes. */
#define TYPED_LAYOUT(type, value, unsigned_value, total)                                   \
  constexpr std::size_t w_##type = sizeof(value);                                          \
  SIZE(stats_fixed_point_##type##_t, 2 * w_##type);                                        \
  AT(stats_fixed_point_##type##_t, thousandths, w_##type);                                 \
  AT(stats_summary_##type##_t, Vmax, w_##type);                                            \
  AT(stats_summary_##type##_t, Vtotal, 2 * w_##type);                                      \
  AT(stats_summary_##type##_t, u32_no_of_samples, 2 * w_##type + 8);                       \
  AT(stats_range_counters_##type##_t, End, w_##type);                                      \
  AT(stats_range_counters_##type##_t, Vexact_end, 2 * w_##type);                           \
  AT(stats_range_counters_##type##_t, Nsc, 3 * w_##type);                                  \
  AT(stats_range_counters_##type##_t, u16_no_of_samples, 3 * w_##type + 2);                \
  AT(stats_range_counters_##type##_t, pu16_counters, w_##type == 4 ? 16 : 32);             \
  AT(stats_range_counters_##type##_t, u16_min_exception_counter, w_##type == 4 ? 24 : 40); \
  AT(stats_range_counters_##type##_t, u16_max_exception_counter, w_##type == 4 ? 26 : 42); \
  AT(stats_sorted_array_##type##_t, Size, 8);                                              \
  SIZE(stats_sorted_array_##type##_t, 16);                                                 \
  AT(stats_learner_##type##_t, lowest, 8);                                                 \
  AT(stats_learner_##type##_t, highest, 24);                                               \
  AT(stats_learner_##type##_t, got, 40);                                                   \
  AT(stats_dynamic_counter_node_##type##_t, Vstart, 8);                                    \
  AT(stats_dynamic_counter_node_##type##_t, Count, 8 + w_##type);                          \
  AT(stats_dynamic_counters_list_##type##_t, length, 8);                                   \
  AT(stats_dynamic_counters_list_##type##_t, exceptions, 10);                              \
  AT(stats_dynamic_counters_##type##_t, MaxNdc, 8);                                        \
  AT(stats_dynamic_counters_##type##_t, Range, w_##type == 4 ? 12 : 16);                   \
  AT(stats_dynamic_counters_##type##_t, NdnMin, w_##type == 4 ? 16 : 24);                  \
  AT(stats_dynamic_counters_##type##_t, min_list, w_##type == 4 ? 24 : 32);                \
  AT(stats_dynamic_counters_##type##_t, max_list, w_##type == 4 ? 40 : 48);                \
  AT(stats_analyzer_##type##_t, learner, 8);                                               \
  AT(stats_analyzer_##type##_t, summary, 56);                                              \
  AT(stats_analyzer_##type##_t, range_counters, 56 + sizeof(stats_summary_##type##_t));    \
  AT(stats_analyzer_##type##_t, dynamic_counters,                                          \
     56 + sizeof(stats_summary_##type##_t) + sizeof(stats_range_counters_##type##_t));     \
  AT(zor_process_object_instance_entry_##type##_t, name, 16);                              \
  AT(zor_process_object_instance_entry_##type##_t, last_value, 24);                        \
  AT(zor_process_object_instance_entry_##type##_t, mode, 24 + w_##type);                   \
  AT(zor_process_object_instance_entry_##type##_t, sample_count, 26 + w_##type);           \
  AT(zor_process_object_instance_entry_##type##_t, clear_count, 28 + w_##type);            \
  AT(zor_process_object_instance_entry_##type##_t, clear_buffer, 40);                      \
  AT(zor_process_object_instance_entry_##type##_t, oper_entry, 48);                        \
  AT(zor_process_object_instance_entry_##type##_t, summary, 56);                           \
  AT(zor_process_object_instance_entry_##type##_t, range_counters, 64);                    \
  AT(zor_process_object_instance_entry_##type##_t, analyzer, 72);
ZOR_PROCESS_FOR_EACH_TYPE(TYPED_LAYOUT)
