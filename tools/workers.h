// Threads that do the parts of a job side by side.
#ifndef ZORSTAT_WORKERS_H_
#define ZORSTAT_WORKERS_H_

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <thread>
#include <vector>

namespace zorstat {

class Workers {
 public:
  // So many at most, the caller's thread among them; fewer where the system gives no more. One starts no thread.
  explicit Workers(std::size_t count);
  ~Workers();
  Workers(const Workers &) = delete;
  Workers &operator=(const Workers &) = delete;

  std::size_t count() const { return threads_.size() + 1; }

  // Calls part(i) for every i below `parts`, side by side, and returns when all of them have; what the first of
  // those that failed has thrown is thrown then.
  void Run(std::size_t parts, const std::function<void(std::size_t)> &part);

 private:
  void Work();
  void TakeParts();

  std::vector<std::thread> threads_;

  // Of the job in hand: written before `job_` is, and read behind it.
  const std::function<void(std::size_t)> *part_ = nullptr;
  std::vector<std::exception_ptr> failures_;  // by part
  std::atomic<std::size_t> next_ = 0;         // part

  std::atomic<std::int32_t> job_ = 0;      // its number
  std::atomic<std::int32_t> working_ = 0;  // threads
  std::atomic<bool> ends_ = false;
};

// The cores that this process may use.
std::size_t Cores();

}  // namespace zorstat

#endif  // ZORSTAT_WORKERS_H_
