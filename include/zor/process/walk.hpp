/** @file
 * @brief Walks over the instances of a group. */
#ifndef ZOR_PROCESS_WALK_HPP_
#define ZOR_PROCESS_WALK_HPP_

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "zor/engine.h"
#include "zor/process/group_state.hpp"
#include "zor/process/result.hpp"

namespace zor::process {

/** An instance that a walk has reached. The names are the library's, valid until a restart, while no
 * instance expires and while a handle lives. */
struct Instance {
  std::string_view object; /**< its object */
  std::string_view name;   /**< its own, the key of its rows */
  std::string text;        /**< as rendered */
};

/** The instances of a group: for (const Result<Instance> &instance : group.walk()) ... An Error stands for one that
 * cannot be rendered, and the walk goes on; or for a restart or the removal
 * of instances since the walk began, and it ends. */
class Walk {
 public:
  /** The place of a walk. Each goes its own way, forward only. */
  class iterator {
   public:
    using iterator_category = std::input_iterator_tag; /**< can be read once */
    using value_type = Result<Instance>;               /**< an instance, or why it is none */
    using difference_type = std::ptrdiff_t;            /**< without use */
    using pointer = const value_type *;                /**< valid until the walk goes on */
    using reference = const value_type &;              /**< valid until the walk goes on */

    iterator() = default; /**< the end */
    /** @return the instance */
    reference operator*() const { return *current_; }
    /** @return the instance */
    pointer operator->() const { return &*current_; }
    /** Goes on. @return itself */
    iterator &operator++() {
      current_ = is_over_ ? std::nullopt : next();
      return *this;
    }
    /** Goes on. @return where it was */
    iterator operator++(int) {
      iterator before = *this;
      ++*this;
      return before;
    }
    /** @param a a place @param b another, or the end @return whether both or neither is at the end */
    friend bool operator==(const iterator &a, const iterator &b) { return !a.current_ == !b.current_; }
    /** @param a a place @param b another, or the end @return whether one of them is at the end */
    friend bool operator!=(const iterator &a, const iterator &b) { return !(a == b); }

   private:
    friend class Walk;
    iterator(std::shared_ptr<detail::GroupState> group, std::uint32_t mode)
        : group_(std::move(group)), cursor_(group_->dg.cursor()), mode_(mode), removals_(group_->tally.removals) {
      ++*this;
    }

    std::optional<Result<Instance>> next() {
      const auto &dg = group_->dg;
      if (removals_ != group_->tally.removals) {
        is_over_ = true;
        return Error{ZOR_PROCESS_ERROR_INVALID_PARAMS,
                     dg.place() + ": the walk began before a restart, or before instances expired"};
      }
      const detail::Text text(zor_process_engine_get_next_object_instance_data(dg.engine(), &cursor_, mode_));
      if (!cursor_.entry) return std::nullopt;
      kel_hashset_record_t head;  // what every entry begins with
      std::memcpy(&head, cursor_.entry, sizeof head);
      const std::string_view object = cursor_.oper_entry->name;
      const std::string_view name = head.name;
      if (text) return Instance{object, name, text.get()};
      return Error{ZOR_PROCESS_ERROR_NO_MEMORY, dg.place() + ", object '" + std::string(object) + "', instance '" +
                                                    std::string(name) + "': cannot be rendered"};
    }

    std::shared_ptr<detail::GroupState> group_;
    zor_process_data_cursor_t cursor_ = {};
    std::uint32_t mode_ = 0;
    std::uint64_t removals_ = 0;
    bool is_over_ = false;
    std::optional<Result<Instance>> current_; /**< nothing at the end */
  };

  /** Begins a walk. @return its first instance */
  iterator begin() const { return {group_, mode_}; }
  /** @return behind the last instance */
  iterator end() const { return {}; }

 private:
  friend class Group;
  Walk(std::shared_ptr<detail::GroupState> group, std::uint32_t mode) : group_(std::move(group)), mode_(mode) {}
  std::shared_ptr<detail::GroupState> group_;
  std::uint32_t mode_;
};

}  // namespace zor::process

#endif /* ZOR_PROCESS_WALK_HPP_ */
