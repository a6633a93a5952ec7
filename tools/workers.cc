#include "workers.h"

#include <sched.h>

#include <algorithm>

#include "signals_blocked.h"

namespace zorstat {

Workers::Workers(std::size_t count) {
  const SignalsBlocked blocked;
  threads_.reserve(count - 1);
  try {
    while (threads_.size() + 1 < count) threads_.emplace_back([this] { Work(); });
  } catch (const std::exception &) {  // those that there are do it all
  }
}

Workers::~Workers() {
  ends_ = true;
  ++job_;
  job_.notify_all();
  for (std::thread &thread : threads_) thread.join();
}

void Workers::Run(std::size_t parts, const std::function<void(std::size_t)> &part) {
  part_ = &part;
  failures_.assign(parts, nullptr);
  next_ = 0;
  working_ = static_cast<std::int32_t>(threads_.size());
  ++job_;
  job_.notify_all();
  TakeParts();
  for (std::int32_t working; (working = working_) != 0;) working_.wait(working);
  for (const std::exception_ptr &failure : failures_) {
    if (failure) std::rethrow_exception(failure);
  }
}

void Workers::Work() {
  for (std::int32_t seen = 0;;) {
    job_.wait(seen);
    seen = job_;  // there is no next job before this one is done
    if (ends_) return;
    TakeParts();
    if (--working_ == 0) working_.notify_one();
  }
}

void Workers::TakeParts() {
  for (std::size_t i; (i = next_++) < failures_.size();) {
    try {
      (*part_)(i);
    } catch (...) {
      failures_[i] = std::current_exception();
    }
  }
}

std::size_t Cores() {
  cpu_set_t cores;
  const bool is_known = sched_getaffinity(0, sizeof cores, &cores) == 0;
  return is_known ? static_cast<std::size_t>(std::max(CPU_COUNT(&cores), 1)) : 1;
}

}  // namespace zorstat
