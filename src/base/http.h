#pragma once

#include "base/error.h"

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// A small HTTP client for the AI engines and the crash-service clients. One call is one blocking
// transfer on the calling thread; Ctrl-C (base/cancellation.h) aborts it with CancelledError.
// Proxies come from the environment (http_proxy, https_proxy, no_proxy) as libcurl reads them.
namespace quillora::base {

using HTTPHeaders = std::vector<std::pair<std::string, std::string>>;

struct HTTPRequest {
  std::string method = "GET";
  std::string url;
  HTTPHeaders headers;
  std::string body;
  // Zero means no limit. The connect limit covers name lookup and the TLS handshake; the overall
  // limit the whole transfer; the stall limit ends a transfer during which no byte moved either
  // way for that long (checked about once a second).
  std::chrono::milliseconds connectTimeout = std::chrono::seconds(30);
  std::chrono::milliseconds timeout = std::chrono::seconds(60);
  std::chrono::milliseconds stallTimeout{0};
  // The request carries a credential (an API key or token in a header or the URL). Such a request
  // is refused over plain http unless the host is a loopback address.
  bool carriesSecret = false;
};

struct HTTPResponse {
  long status = 0;
  HTTPHeaders headers; // as received, in order; names in the server's case
  std::string body;    // empty for a streamed 2xx body, which went to the line handler

  // The first header of that name (ASCII case-insensitive), or nullopt.
  [[nodiscard]] std::optional<std::string> header(std::string_view name) const;
  [[nodiscard]] bool isSuccess() const { return status >= 200 && status <= 299; }
};

// A transfer that failed before a complete response arrived: unreachable host, refused
// connection, time-out, a connection cut mid-body, or a refused plain-http credential. what() is
// "Couldn't reach <host>: <reason>" (or the refusal sentence); the text never holds a header value.
class HTTPError : public Error {
public:
  enum class Reason { unreachable, timedOut, stalled, cutOff, insecure, other };
  HTTPError(Reason reason, std::string host, const std::string& message)
      : Error(message), m_reason(reason), m_host(std::move(host)) {}
  [[nodiscard]] std::string kind() const override { return "network"; }
  [[nodiscard]] Reason reason() const { return m_reason; }
  [[nodiscard]] const std::string& host() const { return m_host; }

private:
  Reason m_reason;
  std::string m_host;
};

// Called with each line of a streamed body, without its "\n" or "\r\n". A final line without a
// line break is delivered too. May throw; the transfer is then aborted and the exception rethrown.
using HTTPLineHandler = std::function<void(std::string_view line)>;

// Sends the request and reads the whole body. Throws HTTPError or CancelledError; any status,
// including 4xx and 5xx, is a response, not an error.
HTTPResponse sendHTTP(const HTTPRequest& request);

// Sends the request; a 2xx body is handed to onLine line by line as it arrives (server-sent
// events) and the response's body stays empty, any other status's body is read whole into the
// response. Throws HTTPError, CancelledError, or what onLine threw.
HTTPResponse sendHTTPStreaming(const HTTPRequest& request, const HTTPLineHandler& onLine);

// The host of an URL ("api.anthropic.com"), or the URL itself when it can't be parsed.
std::string hostOf(const std::string& url);
// True for "localhost", 127.0.0.0/8 and ::1.
bool isLoopbackHost(std::string_view host);
// Throws HTTPError (insecure) when `url` is plain http to a host that isn't loopback. Engines
// call it (through sendHTTP) before any credential leaves the process.
void requireSecureTransport(const std::string& url);

} // namespace quillora::base
