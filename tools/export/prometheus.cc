#include "export/prometheus.h"

#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <prometheus/collectable.h>
#include <prometheus/exposer.h>
#include <prometheus/text_serializer.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "error.h"
#include "export/families.h"
#include "file.h"
#include "signals_blocked.h"
#include "text.h"

namespace zorstat {
namespace {

// What the main thread has made last, for the threads that answer scrapes.
class LastFamilies : public prometheus::Collectable {
 public:
  void Set(MetricFamilies families) {
    auto made = std::make_shared<const MetricFamilies>(std::move(families));
    const std::lock_guard lock(mutex_);
    families_.swap(made);
  }
  MetricFamilies Collect() const override {
    std::shared_ptr<const MetricFamilies> families;
    {
      const std::lock_guard lock(mutex_);
      families = families_;
    }
    return families ? *families : MetricFamilies();
  }

 private:
  mutable std::mutex mutex_;
  std::shared_ptr<const MetricFamilies> families_;
};

[[noreturn]] void FailToListen(const Setting<std::string> &address, const std::string &reason) {
  throw Error(fmt::format("{}: '{}': cannot listen there: {}", address.where, Printable(address.value), reason));
}

class Socket {
 public:
  explicit Socket(int fd) : fd_(fd) {}
  ~Socket() {
    if (fd_ >= 0) close(fd_);
  }
  Socket(const Socket &) = delete;
  Socket &operator=(const Socket &) = delete;
  int fd() const { return fd_; }

 private:
  int fd_;
};

// Names and dotted numbers are of version 4, what is in brackets is of version 6.
int OpenListening(const Setting<std::string> &address) {
  const std::size_t colon = address.value.rfind(':');
  const std::string port = address.value.substr(colon + 1);
  std::string host = address.value.substr(0, colon);
  const bool is_v6 = host.front() == '[';
  if (is_v6) host = host.substr(1, host.size() - 2);

  addrinfo hints{};
  hints.ai_family = is_v6 ? AF_INET6 : AF_INET;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo *first = nullptr;
  if (getaddrinfo(host.c_str(), port.c_str(), &hints, &first) != 0) FailToListen(address, "no such address");
  const std::unique_ptr<addrinfo, void (*)(addrinfo *)> found(first, freeaddrinfo);
  const int fd = socket(found->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  const int on = 1;  // connections of the last run that are not quite over are not in the way
  if (fd < 0 || setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
      bind(fd, found->ai_addr, found->ai_addrlen) != 0 || listen(fd, SOMAXCONN) != 0) {
    const int error = errno;
    if (fd >= 0) close(fd);
    FailToListen(address, ErrnoText(error));
  }
  return fd;
}

// The local port of a socket of the Internet, or 0.
int PortOf(int fd) {
  sockaddr_storage name;
  socklen_t size = sizeof name;
  if (getsockname(fd, reinterpret_cast<sockaddr *>(&name), &size) != 0) return 0;
  // It is at the same place in both.
  const bool has_port = name.ss_family == AF_INET || name.ss_family == AF_INET6;
  return has_port ? ntohs(reinterpret_cast<const sockaddr_in *>(&name)->sin_port) : 0;
}

// The server does not say which sockets it has; they are among the first descriptors, as few files are open.
template <class Use>
void ForEachSocketAt(int port, Use use) {
  constexpr int kDescriptors = 1024;
  for (int fd = STDERR_FILENO + 1; fd < kDescriptors; ++fd) {
    if (PortOf(fd) == port) use(fd);
  }
}

// Serves the families at /metrics from threads of its own. The server of prometheus-cpp takes some texts that are
// no addresses for others, does not tell why it cannot listen and, as Debian builds it, knows no addresses of
// version 6. So it begins at any free port of the loopback and is then given a socket of ours in the place of its
// own, to which it may need two seconds to turn; clients wait.
class Server {
 public:
  Server(const Setting<std::string> &address, const std::shared_ptr<prometheus::Collectable> &families)
      : socket_(OpenListening(address)) {
    const SignalsBlocked blocked;
    try {
      // By default it closes connections without saying so, whereby clients lose scrapes, and two that are kept
      // open take up all its threads. A client that sends nothing has one for as long as a client that pauses.
      exposer_.emplace(std::vector<std::string>{"listening_ports", "127.0.0.1:0", "num_threads", "8",
                                                "enable_keep_alive", "yes", "keep_alive_timeout_ms", "5000",
                                                "request_timeout_ms", "5000"});
    } catch (const std::exception &error) {
      FailToListen(address, error.what());
    }
    exposer_->RegisterCollectable(families);
    bool is_given = false;
    ForEachSocketAt(exposer_->GetListeningPorts().front(),
                    [&](int fd) { is_given = dup3(socket_.fd(), fd, O_CLOEXEC) == fd; });
    if (!is_given) FailToListen(address, "the server has no socket");
  }
  // The server's threads look only every two seconds whether they are to end, unless their sockets tell them.
  ~Server() {
    ForEachSocketAt(PortOf(socket_.fd()), [](int fd) { shutdown(fd, SHUT_RDWR); });
  }
  Server(const Server &) = delete;
  Server &operator=(const Server &) = delete;

 private:
  Socket socket_;
  std::optional<prometheus::Exposer> exposer_;
};

class PrometheusExporter : public Exporter {
 public:
  explicit PrometheusExporter(const Settings &settings) {
    if (settings.prometheus) {
      file_ = settings.prometheus->value;
      const Output fails_early(file_);
    }
    if (settings.listen) server_.emplace(*settings.listen, last_);
  }

  void Begin(const Run &run) override {
    is_live_ = run.is_live;
    maker_.emplace(run);
  }
  void EndInterval(const IntervalReadings &interval) override {
    maker_->EndInterval(interval);
    has_ended_ = true;
  }
  // Of a replay, nobody sees what is between the intervals.
  void EndPoll(std::int64_t time, const ReadInProgress &in_progress) override {
    maker_->EndPoll(time);
    if (!is_live_ && !std::exchange(has_ended_, false)) return;
    const std::vector<ObjectReadings> readings = in_progress();
    maker_->Follow(readings);
    if (is_live_) Publish(maker_->Make(readings));
  }
  void Finish() override { Publish(maker_->Make({})); }

 private:
  void Publish(MetricFamilies families) const {
    if (!file_.empty()) {
      Output output(file_);
      output.Write(prometheus::TextSerializer().Serialize(families));
      output.Close();
      constexpr mode_t kAllMayRead = 0644;  // node_exporter has a user of its own
      chmod(file_.c_str(), kAllMayRead);
    }
    last_->Set(std::move(families));
  }

  std::string file_;
  std::shared_ptr<LastFamilies> last_ = std::make_shared<LastFamilies>();
  std::optional<Server> server_;
  std::optional<FamilyMaker> maker_;
  bool is_live_ = false;
  bool has_ended_ = false;  // an interval, with the poll that ends
};

}  // namespace

std::unique_ptr<Exporter> MakePrometheus(const Settings &settings) {
  if (!settings.listen && !settings.prometheus) return nullptr;
  return std::make_unique<PrometheusExporter>(settings);
}

}  // namespace zorstat
