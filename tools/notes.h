// Notes: what the user should know of a run that is neither record nor error, a line each. Where there are many
// things to say the first ones are named.
#ifndef ZORSTAT_NOTES_H_
#define ZORSTAT_NOTES_H_

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zorstat {

inline constexpr std::size_t kNamed = 8;

// A list in a note: "a 1, b 2 and 3 more".
class Items {
 public:
  explicit Items(std::size_t named = kNamed) : named_(named) {}
  void Add(std::string_view item) {
    if (++count_ <= named_) text_.append(count_ == 1 ? "" : ", ").append(item);
  }
  bool empty() const { return count_ == 0; }
  std::string text() const {
    return count_ <= named_ ? text_ : text_ + " and " + std::to_string(count_ - named_) + " more";
  }

 private:
  std::string text_;
  std::size_t named_;
  std::size_t count_ = 0;
};

// Notes of one kind, and at the end of the others: "3 more OTHERS".
class SomeNotes {
 public:
  SomeNotes(std::string_view others, std::vector<std::string> *notes) : others_(others), notes_(notes) {}
  void Add(std::string note) {
    if (++count_ <= kNamed) notes_->push_back(std::move(note));
  }
  void End() {
    if (count_ > kNamed) notes_->push_back(std::to_string(count_ - kNamed) + " more " + others_);
  }

 private:
  std::string others_;
  std::vector<std::string> *notes_;
  std::size_t count_ = 0;
};

}  // namespace zorstat

#endif  // ZORSTAT_NOTES_H_
