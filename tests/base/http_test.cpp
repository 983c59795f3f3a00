// The HTTP client against a real loopback server: what the server receives, what comes back,
// and each way a transfer can fail.
#include "base/cancellation.h"
#include "base/http.h"
#include "support/fake_server.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace quillora::testing {
namespace {

using base::HTTPError;
using base::HTTPRequest;

HTTPRequest get(const std::string& url) {
  HTTPRequest request;
  request.url = url;
  return request;
}

TEST(HTTPClient, SendsMethodHeadersAndBodyAndReturnsTheResponse) {
  FakeServer server;
  FakeResponse canned = jsonResponse(201, R"({"ok":true})");
  canned.headers = {{"request-id", "req_42"}};
  server.respond("POST", "/v1/things", canned);

  HTTPRequest request;
  request.method = "POST";
  request.url = server.url() + "/v1/things?limit=100";
  request.headers = {{"x-api-key", "sk-test"},
                     {"content-type", "application/json"},
                     {"accept", "text/event-stream"}};
  request.body = R"({"name":"é ✓"})";
  request.carriesSecret = true;
  auto response = base::sendHTTP(request);

  EXPECT_EQ(response.status, 201);
  EXPECT_EQ(response.body, R"({"ok":true})");
  EXPECT_EQ(response.header("Request-ID"), "req_42");
  EXPECT_EQ(response.header("x-missing"), std::nullopt);
  auto received = server.requests();
  ASSERT_EQ(received.size(), 1u);
  EXPECT_EQ(received[0].method, "POST");
  EXPECT_EQ(received[0].target, "/v1/things?limit=100");
  EXPECT_EQ(received[0].header("x-api-key"), "sk-test");
  EXPECT_EQ(received[0].header("accept"), "text/event-stream");
  EXPECT_EQ(received[0].header("expect"), std::nullopt);
  EXPECT_EQ(received[0].body, R"({"name":"é ✓"})");
}

TEST(HTTPClient, ErrorStatusesAreResponsesWithTheirWholeBody) {
  FakeServer server;
  server.respond("GET", "/missing", jsonResponse(404, R"({"error":{"message":"nope"}})"));
  server.respond("POST", "/stream", jsonResponse(529, R"({"error":{"message":"Overloaded"}})"));

  auto plain = base::sendHTTP(get(server.url() + "/missing"));
  EXPECT_EQ(plain.status, 404);
  EXPECT_FALSE(plain.isSuccess());
  EXPECT_EQ(plain.body, R"({"error":{"message":"nope"}})");

  // A streamed request that fails gets its body whole, not line by line.
  HTTPRequest request = get(server.url() + "/stream");
  request.method = "POST";
  request.body = "{}";
  int lines = 0;
  auto streamed = base::sendHTTPStreaming(request, [&](std::string_view) { ++lines; });
  EXPECT_EQ(streamed.status, 529);
  EXPECT_EQ(streamed.body, R"({"error":{"message":"Overloaded"}})");
  EXPECT_EQ(lines, 0);
}

TEST(HTTPClient, StreamsTheBodyLineByLineWhateverTheChunking) {
  const std::string body =
      "event: a\r\ndata: {\"x\":1}\r\n\r\ndata: é✓ split\n\nlast line, no break";
  const std::vector<std::string> expected = {"event: a", "data: {\"x\":1}",    "", "data: é✓ split",
                                             "",         "last line, no break"};
  for (std::size_t chunkSize : {0, 1, 3, 7, 1000}) {
    FakeServer server;
    FakeResponse response;
    response.contentType = "text/event-stream";
    response.body = body;
    response.chunked = true;
    response.chunkSize = chunkSize;
    server.respond("GET", "/events", response);

    std::vector<std::string> lines;
    auto result = base::sendHTTPStreaming(get(server.url() + "/events"),
                                          [&](std::string_view line) { lines.emplace_back(line); });
    EXPECT_EQ(result.status, 200);
    EXPECT_EQ(result.body, "");
    EXPECT_EQ(lines, expected) << "chunk size " << chunkSize;
  }
}

TEST(HTTPClient, TransferFailuresSayWhichHostAndWhy) {
  using namespace std::chrono_literals;
  FakeResponse cut;
  cut.contentType = "text/event-stream";
  cut.body = "data: one\n\ndata: two\n\ndata: three\n\n";
  cut.cutOffAfter = 11;
  FakeResponse stall = cut;
  stall.cutOffAfter.reset();
  stall.stallAfter = 22;
  const std::vector<std::string> one = {"data: one", ""};
  const std::vector<std::string> two = {"data: one", "", "data: two", ""};
  struct Case {
    std::optional<FakeResponse> response;  // none: nothing listens on the port
    std::chrono::milliseconds stallTimeout;
    std::chrono::milliseconds timeout;
    HTTPError::Reason reason;
    std::string message;
    std::vector<std::string> linesBefore;
  } cases[] = {
      {cut, 0ms, 60s, HTTPError::Reason::cutOff,
       "Couldn't reach 127.0.0.1: the connection closed before the response was complete", one},
      {stall, 1s, 60s, HTTPError::Reason::stalled,
       "Couldn't reach 127.0.0.1: the server sent nothing for 1 second", two},
      {stall, 0ms, 300ms, HTTPError::Reason::timedOut,
       "Couldn't reach 127.0.0.1: no complete answer within 0.3 seconds", two},
      {std::nullopt, 0ms, 60s, HTTPError::Reason::unreachable,
       "Couldn't reach 127.0.0.1: Connection refused", {}},
  };
  for (auto& c : cases) {
    FakeServer server;
    HTTPRequest request = get(server.url() + "/events");
    if (c.response)
      server.respond("GET", "/events", *c.response);
    else
      request.url = "http://127.0.0.1:" + std::to_string(unusedLoopbackPort()) + "/events";
    request.stallTimeout = c.stallTimeout;
    request.timeout = c.timeout;
    std::vector<std::string> lines;
    try {
      base::sendHTTPStreaming(request, [&](std::string_view line) { lines.emplace_back(line); });
      ADD_FAILURE() << c.message << ": no error";
    } catch (const HTTPError& e) {
      EXPECT_EQ(e.what(), c.message);
      EXPECT_EQ(e.reason(), c.reason) << c.message;
      EXPECT_EQ(e.host(), "127.0.0.1") << c.message;
      EXPECT_EQ(e.kind(), "network") << c.message;
    }
    EXPECT_EQ(lines, c.linesBefore) << c.message;
  }
}

TEST(HTTPClient, GoesThroughTheProxyNamedInTheEnvironment) {
  FakeServer proxy;
  ::setenv("http_proxy", proxy.url().c_str(), 1);
  ::unsetenv("no_proxy");
  ::unsetenv("NO_PROXY");
  FakeServer direct;
  direct.respond("GET", "/ping", jsonResponse(200, "{}"));
  auto local = base::sendHTTP(get(direct.url() + "/ping"));
  auto response = base::sendHTTP(get("http://crashes.example.invalid/v1/ping"));
  ::unsetenv("http_proxy");
  EXPECT_EQ(local.status, 200);  // loopback is never proxied
  // The name never had to resolve: the proxy got the request and its host.
  EXPECT_EQ(response.status, 404);
  auto requests = proxy.requests();
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_EQ(requests[0].header("host"), "crashes.example.invalid");
}

TEST(HTTPClient, CredentialsGoOverPlainHTTPOnlyToLoopback) {
  auto refusal = [](const std::string& host) -> std::optional<std::string> {
    return "Refusing to send an API key to " + host +
           " over plain http; use an https address (only loopback addresses may use http).";
  };
  const std::pair<std::string, std::optional<std::string>> cases[] = {
      {"http://api.example.com/v1/messages", refusal("api.example.com")},
      {"HTTP://api.example.com:8080/x", refusal("api.example.com")},
      {"http://10.0.0.127/x", refusal("10.0.0.127")},
      {"http://127.0.0.1.example.com/x", refusal("127.0.0.1.example.com")},
      {"https://api.example.com/v1/messages", std::nullopt},
      {"http://127.8.9.10/x", std::nullopt},
      {"http://localhost:9/x", std::nullopt},
      {"http://[::1]:9/x", std::nullopt},
  };
  for (const auto& [url, expected] : cases) {
    try {
      base::requireSecureTransport(url);
      EXPECT_EQ(expected, std::nullopt) << url;
    } catch (const HTTPError& e) {
      EXPECT_EQ(std::optional<std::string>(e.what()), expected) << url;
      EXPECT_EQ(e.reason(), HTTPError::Reason::insecure);
    }
  }

  // The client applies the rule itself before anything is sent.
  HTTPRequest request = get("http://quillora.invalid/v1/models");
  request.carriesSecret = true;
  request.headers = {{"x-api-key", "sk-secret-value"}};
  try {
    base::sendHTTP(request);
    FAIL() << "no error";
  } catch (const HTTPError& e) {
    EXPECT_EQ(e.reason(), HTTPError::Reason::insecure);
    EXPECT_EQ(std::string(e.what()).find("sk-secret"), std::string::npos);
  }
  FakeServer server;
  server.respond("GET", "/v1/models", jsonResponse(200, "{}"));
  request.url = server.url() + "/v1/models";
  EXPECT_EQ(base::sendHTTP(request).status, 200);
}

TEST(HTTPClient, AThrowingLineHandlerOrCancellationEndsAStalledTransfer) {
  FakeServer server;
  FakeResponse stall;
  stall.contentType = "text/event-stream";
  stall.body = "data: one\n\ndata: two\n";
  stall.stallAfter = 11; // would hang without the abort
  server.respond("GET", "/events", stall);
  EXPECT_THROW(base::sendHTTPStreaming(get(server.url() + "/events"),
                                       [](std::string_view line) {
                                         if (line == "data: one") throw std::logic_error("stop");
                                       }),
               std::logic_error);
  std::vector<std::string> lines;
  EXPECT_THROW(base::sendHTTPStreaming(get(server.url() + "/events"),
                                       [&](std::string_view line) {
                                         lines.emplace_back(line);
                                         base::setCancelled(true); // as Ctrl-C would
                                       }),
               CancelledError);
  base::setCancelled(false);
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines.front(), "data: one");
}

} // namespace
} // namespace quillora::testing
