#pragma once

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

// A loopback HTTP server for tests: it stands in for a remote service (an AI provider, a crash
// service), records every request it receives and answers with canned or recorded responses,
// whole, streamed in chunks, cut off mid-stream or stalled.
namespace quillora::testing {

struct RecordedRequest {
  std::string method;
  std::string path;                                         // without the query
  std::string target;                                       // path and query as sent
  std::vector<std::pair<std::string, std::string>> headers; // as received, names lower-cased
  std::string body;

  // The value of a header (name in lower case), or nullopt when absent.
  [[nodiscard]] std::optional<std::string> header(const std::string& lowerName) const;
};

struct FakeResponse {
  int status = 200;
  std::string contentType = "application/json";
  std::string body;
  std::vector<std::pair<std::string, std::string>> headers;
  // Streamed with chunked transfer encoding, `chunkSize` bytes at a time (0: one line per chunk).
  bool chunked = false;
  std::size_t chunkSize = 0;
  // After this many body bytes the connection is dropped without finishing the response.
  std::optional<std::size_t> cutOffAfter;
  // After this many body bytes the server sends nothing more and holds the connection open
  // until the client gives up or the server stops.
  std::optional<std::size_t> stallAfter;
};

class FakeServer {
public:
  // Starts listening on 127.0.0.1 on a free port; returns when it accepts connections.
  FakeServer();
  ~FakeServer();
  FakeServer(const FakeServer&) = delete;
  FakeServer& operator=(const FakeServer&) = delete;

  // "http://127.0.0.1:<port>".
  [[nodiscard]] std::string url() const;
  [[nodiscard]] int port() const;

  // Answers `method` on `path` (no query) with `response`. Later calls for the same route queue
  // more responses: each request takes the next one, the last one repeats. An unrouted request
  // gets a 404 with a JSON error body.
  void respond(const std::string& method, const std::string& path, FakeResponse response);

  // Every request received so far, in arrival order.
  [[nodiscard]] std::vector<RecordedRequest> requests() const;

  struct State;

private:
  std::shared_ptr<State> m_state;
};

// A server-sent-events response replaying a recorded stream: ".sse" files are sent as they are;
// ".jsonl" files (one event payload per line) are framed as "event: <type>" / "data: <line>"
// pairs. Chunked, one line per chunk.
FakeResponse recordedEventStream(const std::filesystem::path& file);
// A JSON response with this status and body.
FakeResponse jsonResponse(int status, std::string body);
// A port on 127.0.0.1 that nothing listens on (for connection-refused cases).
int unusedLoopbackPort();

} // namespace quillora::testing
