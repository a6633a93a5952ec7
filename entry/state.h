// The state of instance entries as bytes, in the byte order of the machine: what is needed for them to go on in
// another process. What they are made from, their settings, is written to be compared, not to be made again.
//
// One function for each record transfers its fields in either direction, so that what is written is what is read.
#ifndef ZOR_ENTRY_STATE_H_
#define ZOR_ENTRY_STATE_H_

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "zor/types.h"

namespace zor {

// Writes as far as there is room, and counts all the same.
class StateWriter {
 public:
  static constexpr bool kReads = false;

  StateWriter(void *data, std::size_t room) : next_(static_cast<char *>(data)), room_(data ? room : 0) {}

  std::size_t size() const { return size_; }

  void Bytes(const void *bytes, std::size_t size) {
    size_ += size;
    if (size > room_) room_ = 0;
    if (room_ == 0 || size == 0) return;
    std::memcpy(next_, bytes, size);
    next_ += size;
    room_ -= size;
  }

  template <class... T>
  void Fields(const T &...fields) {
    (Bytes(&fields, sizeof fields), ...);
  }
  template <class... T>
  void Same(const T &...settings) {
    Fields(settings...);
  }
  static void Expect(bool) {}

 private:
  char *next_;
  std::size_t room_;
  std::size_t size_ = 0;
};

// Reads what a writer has written, or anything else: from the first thing on that is wrong, all is zero.
class StateReader {
 public:
  static constexpr bool kReads = true;

  StateReader(const void *data, std::size_t size) : next_(static_cast<const char *>(data)), left_(size) {}

  std::uint32_t result() const { return result_; }
  std::size_t left() const { return left_; }

  void Fail(std::uint32_t result) {
    if (result_ == ZOR_PROCESS_SUCCESS) result_ = result;
    left_ = 0;
  }
  void Expect(bool is_right) {
    if (!is_right) Fail(ZOR_PROCESS_ERROR_IN_DATA);
  }

  // The bytes where they lie; null when there are not as many.
  const char *Take(std::size_t size) {
    Expect(size <= left_ && result_ == ZOR_PROCESS_SUCCESS);
    if (result_ != ZOR_PROCESS_SUCCESS) return nullptr;
    left_ -= size;
    next_ += size;
    return next_ - size;
  }
  void Bytes(void *bytes, std::size_t size) {
    const char *taken = Take(size);
    if (size == 0) return;
    taken ? std::memcpy(bytes, taken, size) : std::memset(bytes, 0, size);
  }

  template <class... T>
  void Fields(T &...fields) {
    (Bytes(&fields, sizeof fields), ...);
  }
  template <class... T>
  void Same(const T &...settings) {
    (ExpectSame(settings), ...);
  }

 private:
  template <class T>
  void ExpectSame(const T &setting) {
    T written;
    Fields(written);
    Expect(written == setting);
  }

  const char *next_;
  std::size_t left_;
  std::uint32_t result_ = ZOR_PROCESS_SUCCESS;
};

// Transfers an entry of a data type; one that is read was just made. After a failure it can be destroyed.
template <class Archive>
void TransferEntry(Archive &archive, std::uint32_t data_type, void *entry);

}  // namespace zor

#endif  // ZOR_ENTRY_STATE_H_
