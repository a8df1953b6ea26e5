// orvan_server_load: a load run against a running project server. Several clients, each on one
// kept-alive connection, share a number of GET requests over the given paths; at the end it
// prints the latency percentiles per path and the count of failed requests. It measures, it does
// not test: the figures depend on the machine.
//
//   orvan_server_load URL [--requests N] [--clients C] [--path PATH]...
//
// The bearer token, when the server wants one, comes from ORVAN_SERVER_TOKEN.
#include <algorithm>
#include <atomic>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <httplib.h>

namespace {

constexpr const char* kUsage =
    "usage: orvan_server_load URL [--requests N] [--clients C] [--path PATH]... [--fresh]";

struct Options {
  std::string url;
  int requests = 10000;
  int clients = 8;
  std::vector<std::string> paths;
  bool fresh = false;  // a new connection per request
};

bool parseCount(const std::string& text, int& out) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), out);
  return error == std::errc() && end == text.data() + text.size() && out > 0;
}

bool parse(int argc, char** argv, Options& options) {
  for (int i = 1; i < argc; ++i) {
    const std::string option = argv[i];
    if (option.starts_with("http://")) {
      options.url = option;
      continue;
    }
    if (option == "--fresh") {
      options.fresh = true;
      continue;
    }
    if (i + 1 >= argc)
      return false;
    const std::string value = argv[++i];
    if (option == "--requests" && parseCount(value, options.requests))
      continue;
    if (option == "--clients" && parseCount(value, options.clients))
      continue;
    if (option == "--path") {
      options.paths.push_back(value);
      continue;
    }
    return false;
  }
  if (options.paths.empty())
    options.paths = {"/api/me", "/api/project"};
  return !options.url.empty();
}

double percentile(std::vector<double>& sorted, double fraction) {
  if (sorted.empty())
    return 0;
  const auto index = static_cast<std::size_t>(fraction * static_cast<double>(sorted.size() - 1));
  return sorted[index];
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  if (!parse(argc, argv, options)) {
    std::fprintf(stderr, "%s\n", kUsage);
    return 2;
  }
  httplib::Headers headers;
  if (const char* token = std::getenv("ORVAN_SERVER_TOKEN"); token != nullptr && *token != '\0')
    headers.emplace("Authorization", std::string("Bearer ") + token);

  std::atomic<int> next = 0;
  std::atomic<int> errors = 0;
  std::mutex mutex;
  std::map<std::string, std::vector<double>> latencies;  // milliseconds per path
  const auto start = std::chrono::steady_clock::now();
  std::vector<std::thread> clients;
  for (int c = 0; c < options.clients; ++c) {
    clients.emplace_back([&] {
      httplib::Client client(options.url);
      client.set_keep_alive(!options.fresh);
      client.set_connection_timeout(5);
      client.set_read_timeout(30);
      std::map<std::string, std::vector<double>> mine;
      for (int n; (n = next++) < options.requests;) {
        const std::string& path = options.paths[static_cast<std::size_t>(n) % options.paths.size()];
        const auto sent = std::chrono::steady_clock::now();
        const auto answer = client.Get(path, headers);
        const std::chrono::duration<double, std::milli> took =
            std::chrono::steady_clock::now() - sent;
        if (!answer || answer->status != 200)
          ++errors;
        mine[path].push_back(took.count());
      }
      const std::lock_guard lock(mutex);
      for (auto& [path, values] : mine)
        latencies[path].insert(latencies[path].end(), values.begin(), values.end());
    });
  }
  for (std::thread& client : clients)
    client.join();
  const std::chrono::duration<double> total = std::chrono::steady_clock::now() - start;

  std::printf("%d requests from %d clients (%s) in %.2f s (%.0f/s), %d errors\n", options.requests,
              options.clients, options.fresh ? "a connection per request" : "kept alive",
              total.count(), options.requests / total.count(), errors.load());
  std::vector<double> all;
  for (auto& [path, values] : latencies) {
    std::sort(values.begin(), values.end());
    all.insert(all.end(), values.begin(), values.end());
    std::printf("  %-14s n=%-6zu p50 %8.2f ms  p99 %8.2f ms  max %8.2f ms\n", path.c_str(),
                values.size(), percentile(values, 0.5), percentile(values, 0.99), values.back());
  }
  std::sort(all.begin(), all.end());
  std::printf("  %-14s n=%-6zu p50 %8.2f ms  p99 %8.2f ms\n", "all", all.size(),
              percentile(all, 0.5), percentile(all, 0.99));
  return errors.load() == 0 ? 0 : 1;
}
