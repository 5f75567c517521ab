#include "platform/path_monitor/netlink_path_monitor.hpp"

#include <ifaddrs.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <charconv>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace kiv {

namespace {

constexpr unsigned long kRouteUp = 0x0001;             // RTF_UP
constexpr unsigned long kIpv6RouteLocal = 0x80000000;  // RTF_LOCAL: a route to the host's own address

std::vector<std::string_view> fieldsOf(std::string_view line) {
  std::vector<std::string_view> fields;
  std::size_t at = 0;
  while (at < line.size()) {
    const auto start = line.find_first_not_of(" \t", at);
    if (start == std::string_view::npos) break;
    const auto end = std::min(line.find_first_of(" \t", start), line.size());
    fields.push_back(line.substr(start, end - start));
    at = end;
  }
  return fields;
}

std::optional<unsigned long> hexNumber(std::string_view text) {
  unsigned long value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, 16);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

template <typename Visit>
void forEachLine(std::string_view table, Visit visit) {
  while (!table.empty()) {
    const auto end = std::min(table.find('\n'), table.size());
    visit(fieldsOf(table.substr(0, end)));
    table.remove_prefix(std::min(end + 1, table.size()));
  }
}

std::string readWhole(const char* path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

}  // namespace

bool hasRouteThrough(std::string_view ipv4Table, std::string_view ipv6Table, const std::set<std::string>& interfaces) {
  bool found = false;
  // Iface Destination Gateway Flags ...; the first line is the heading.
  forEachLine(ipv4Table, [&](const std::vector<std::string_view>& fields) {
    if (found || fields.size() < 4 || !interfaces.contains(std::string(fields[0]))) return;
    const auto flags = hexNumber(fields[3]);
    found = flags && (*flags & kRouteUp) != 0;
  });
  // Destination PrefixLength Source SourceLength NextHop Metric RefCount Use Flags Iface.
  forEachLine(ipv6Table, [&](const std::vector<std::string_view>& fields) {
    if (found || fields.size() < 10 || !interfaces.contains(std::string(fields[9]))) return;
    const auto flags = hexNumber(fields[8]);
    const std::string_view destination = fields[0];
    const bool linkLocal = destination.starts_with("fe8") || destination.starts_with("fe9") ||
                           destination.starts_with("fea") || destination.starts_with("feb");
    const bool multicast = destination.starts_with("ff");
    found = flags && (*flags & kRouteUp) != 0 && (*flags & kIpv6RouteLocal) == 0 && !linkLocal && !multicast;
  });
  return found;
}

NetworkPathStatus currentNetworkPathStatus() {
  ifaddrs* list = nullptr;
  if (getifaddrs(&list) != 0) return NetworkPathStatus::unsatisfied;
  std::set<std::string> usable;
  for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
    if (entry->ifa_addr == nullptr || entry->ifa_name == nullptr) continue;
    const auto family = entry->ifa_addr->sa_family;
    if (family != AF_INET && family != AF_INET6) continue;
    const unsigned flags = entry->ifa_flags;
    if ((flags & IFF_UP) != 0 && (flags & IFF_RUNNING) != 0 && (flags & IFF_LOOPBACK) == 0) {
      usable.insert(entry->ifa_name);
    }
  }
  freeifaddrs(list);
  if (usable.empty()) return NetworkPathStatus::unsatisfied;
  return hasRouteThrough(readWhole("/proc/net/route"), readWhole("/proc/net/ipv6_route"), usable)
             ? NetworkPathStatus::satisfied
             : NetworkPathStatus::unsatisfied;
}

namespace {

class NetlinkPathMonitor final : public PathMonitor {
 public:
  ~NetlinkPathMonitor() override { cancel(); }

  void start(std::shared_ptr<SerialQueue> queue, Handler handler) override {
    std::lock_guard lock(mutex_);
    if (queue_ || cancelled_) return;
    queue_ = std::move(queue);
    handler_ = std::make_shared<Handler>(std::move(handler));
    wake_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    socket_ = openSocket();
    thread_ = std::thread([this] { run(); });
  }

  void cancel() override {
    std::thread thread;
    {
      std::lock_guard lock(mutex_);
      if (cancelled_) return;
      cancelled_ = true;
      handler_.reset();
      if (wake_ >= 0) {
        const std::uint64_t one = 1;
        [[maybe_unused]] const auto written = write(wake_, &one, sizeof one);
      }
      thread = std::move(thread_);
    }
    // The thread never calls the handler itself, so joining cannot wait on a
    // report in progress.
    if (thread.joinable() && thread.get_id() != std::this_thread::get_id()) thread.join();
    if (thread.joinable()) thread.detach();
    if (socket_ >= 0) close(socket_);
    if (wake_ >= 0) close(wake_);
    socket_ = wake_ = -1;
  }

 private:
  static int openSocket() {
    const int fd = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE);
    if (fd < 0) return -1;
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_groups = RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV6_IFADDR | RTMGRP_IPV4_ROUTE | RTMGRP_IPV6_ROUTE;
    if (bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
      close(fd);
      return -1;
    }
    return fd;
  }

  void run() {
    std::optional<NetworkPathStatus> last;
    for (;;) {
      const NetworkPathStatus status = currentNetworkPathStatus();
      if (status != last) {
        last = status;
        report(status);
      }
      std::array<pollfd, 2> fds{{{wake_, POLLIN, 0}, {socket_, POLLIN, 0}}};
      // Without a netlink socket the monitor still reports once and waits
      // for cancel.
      const nfds_t count = socket_ >= 0 ? 2 : 1;
      if (poll(fds.data(), count, -1) < 0 && errno != EINTR) return;
      if ((fds[0].revents & POLLIN) != 0) return;
      if (count == 2 && (fds[1].revents & POLLIN) != 0) drain();
    }
  }

  void drain() const {
    std::array<char, 8192> buffer{};
    while (recv(socket_, buffer.data(), buffer.size(), MSG_DONTWAIT) > 0) {
    }
  }

  void report(NetworkPathStatus status) {
    std::shared_ptr<SerialQueue> queue;
    std::weak_ptr<Handler> handler;
    {
      std::lock_guard lock(mutex_);
      if (cancelled_) return;
      queue = queue_;
      handler = handler_;
    }
    // Only the monitor owns the handler, so a cancel before the queue runs
    // the report wins.
    queue->post([handler, status] {
      if (auto live = handler.lock()) (*live)(status);
    });
  }

  std::mutex mutex_;
  std::shared_ptr<SerialQueue> queue_;
  std::shared_ptr<Handler> handler_;
  bool cancelled_ = false;
  int wake_ = -1;
  int socket_ = -1;
  std::thread thread_;
};

}  // namespace

std::shared_ptr<PathMonitor> NetlinkPathMonitorFactory::makeMonitor() { return std::make_shared<NetlinkPathMonitor>(); }

}  // namespace kiv
