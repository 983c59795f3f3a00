#include "support/fake_server.h"

#include <httplib.h>
#include <nlohmann/json.hpp>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <fstream>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace quillora::testing {

struct FakeServer::State {
  httplib::Server server;
  std::thread thread;
  int port = 0;
  mutable std::mutex mutex;
  std::condition_variable stopping;
  bool stopped = false;
  std::vector<RecordedRequest> requests;
  std::map<std::string, std::deque<FakeResponse>> routes; // "METHOD path"

  FakeResponse nextResponse(const std::string& method, const std::string& path) {
    std::lock_guard lock(mutex);
    auto found = routes.find(method + " " + path);
    if (found == routes.end() || found->second.empty())
      return jsonResponse(
          404, R"({"type":"error","error":{"type":"not_found_error","message":"no route"}})");
    FakeResponse response = found->second.front();
    if (found->second.size() > 1) found->second.pop_front();
    return response;
  }

  // Holds a stalled response until the server stops (or a generous safety limit passes).
  void waitForStop() {
    std::unique_lock lock(mutex);
    stopping.wait_for(lock, std::chrono::seconds(30), [&] { return stopped; });
  }
};

namespace {

std::string lowered(std::string s) {
  std::transform(s.begin(), s.end(), s.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return s;
}

// Splits a body into the pieces a chunked response sends: fixed-size pieces or whole lines.
std::vector<std::string> chunksOf(const std::string& body, std::size_t chunkSize) {
  std::vector<std::string> chunks;
  std::size_t start = 0;
  while (start < body.size()) {
    std::size_t end;
    if (chunkSize > 0) {
      end = std::min(body.size(), start + chunkSize);
    } else {
      end = body.find('\n', start);
      end = end == std::string::npos ? body.size() : end + 1;
    }
    chunks.push_back(body.substr(start, end - start));
    start = end;
  }
  return chunks;
}

void serve(const std::shared_ptr<FakeServer::State>& state, const httplib::Request& request,
           httplib::Response& out) {
  RecordedRequest recorded;
  recorded.method = request.method;
  recorded.path = request.path;
  recorded.target = request.target;
  for (const auto& [name, value] : request.headers) {
    // httplib adds these itself; they were not sent by the client.
    if (name == "REMOTE_ADDR" || name == "REMOTE_PORT" || name == "LOCAL_ADDR" ||
        name == "LOCAL_PORT")
      continue;
    recorded.headers.emplace_back(lowered(name), value);
  }
  recorded.body = request.body;
  {
    std::lock_guard lock(state->mutex);
    state->requests.push_back(recorded);
  }

  FakeResponse response = state->nextResponse(request.method, request.path);
  out.status = response.status;
  for (const auto& [name, value] : response.headers)
    out.set_header(name, value);
  bool streamed = response.chunked || response.cutOffAfter || response.stallAfter;
  if (!streamed) {
    out.set_content(response.body, response.contentType);
    return;
  }

  // The provider runs on the server's worker thread; it owns a copy of everything it needs.
  auto limit = std::min(response.cutOffAfter.value_or(response.body.size()),
                        response.stallAfter.value_or(response.body.size()));
  std::string sent = response.body.substr(0, limit);
  auto chunks = std::make_shared<std::vector<std::string>>(chunksOf(sent, response.chunkSize));
  bool cutOff = response.cutOffAfter &&
                (!response.stallAfter || *response.cutOffAfter <= *response.stallAfter);
  bool stall = response.stallAfter && !cutOff;
  std::weak_ptr<FakeServer::State> weak = state;
  out.set_chunked_content_provider(response.contentType,
                                   [chunks, cutOff, stall, weak, index = std::size_t{0}](
                                       std::size_t, httplib::DataSink& sink) mutable {
                                     if (index < chunks->size()) {
                                       const auto& chunk = (*chunks)[index++];
                                       return sink.write(chunk.data(), chunk.size());
                                     }
                                     if (cutOff)
                                       return false; // drops the connection without the final chunk
                                     if (stall) {
                                       if (auto s = weak.lock()) s->waitForStop();
                                       return false;
                                     }
                                     sink.done();
                                     return true;
                                   });
}

} // namespace

std::optional<std::string> RecordedRequest::header(const std::string& lowerName) const {
  for (const auto& [name, value] : headers)
    if (name == lowerName) return value;
  return std::nullopt;
}

FakeServer::FakeServer() : m_state(std::make_shared<State>()) {
  auto state = m_state;
  auto handler = [weak = std::weak_ptr<State>(state)](const httplib::Request& request,
                                                      httplib::Response& response) {
    if (auto s = weak.lock()) serve(s, request, response);
  };
  state->server.Get(".*", handler);
  state->server.Post(".*", handler);
  state->server.Put(".*", handler);
  state->server.Patch(".*", handler);
  state->server.Delete(".*", handler);
  state->port = state->server.bind_to_any_port("127.0.0.1");
  if (state->port <= 0) throw std::runtime_error("the fake server couldn't bind a port");
  state->thread = std::thread([state] { state->server.listen_after_bind(); });
  while (!state->server.is_running())
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

FakeServer::~FakeServer() {
  {
    std::lock_guard lock(m_state->mutex);
    m_state->stopped = true;
  }
  m_state->stopping.notify_all();
  m_state->server.stop();
  if (m_state->thread.joinable()) m_state->thread.join();
}

std::string FakeServer::url() const {
  return "http://127.0.0.1:" + std::to_string(m_state->port);
}

int FakeServer::port() const {
  return m_state->port;
}

void FakeServer::respond(const std::string& method, const std::string& path,
                         FakeResponse response) {
  std::lock_guard lock(m_state->mutex);
  m_state->routes[method + " " + path].push_back(std::move(response));
}

std::vector<RecordedRequest> FakeServer::requests() const {
  std::lock_guard lock(m_state->mutex);
  return m_state->requests;
}

FakeResponse recordedEventStream(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  if (!in) throw std::runtime_error("missing recorded stream " + file.string());
  std::ostringstream content;
  content << in.rdbuf();
  FakeResponse response;
  response.contentType = "text/event-stream";
  response.chunked = true;
  if (file.extension() != ".jsonl") {
    response.body = content.str();
    return response;
  }
  std::istringstream lines(content.str());
  for (std::string line; std::getline(lines, line);) {
    if (line.empty()) continue;
    std::string type = nlohmann::json::parse(line).value("type", "");
    response.body += "event: " + type + "\ndata: " + line + "\n\n";
  }
  return response;
}

FakeResponse jsonResponse(int status, std::string body) {
  FakeResponse response;
  response.status = status;
  response.body = std::move(body);
  return response;
}

int unusedLoopbackPort() {
  int fd = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = 0;
  socklen_t length = sizeof address;
  int port = 0;
  if (::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
      ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) == 0)
    port = ntohs(address.sin_port);
  ::close(fd);
  return port;
}

} // namespace quillora::testing
