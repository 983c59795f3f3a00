#include "base/http.h"

#include "base/cancellation.h"
#include "base/strings.h"

#include <cstdlib>
#include <curl/curl.h>

#include <arpa/inet.h>

#include <cstring>
#include <exception>
#include <memory>
#include <string_view>

namespace quillora::base {

namespace {

void initializeCurlOnce() {
  static const bool initialized = [] {
    curl_global_init(CURL_GLOBAL_DEFAULT);
    return true;
  }();
  (void)initialized;
}

struct EasyDeleter {
  void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
};
struct ListDeleter {
  void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
struct URLDeleter {
  void operator()(CURLU* url) const { curl_url_cleanup(url); }
};

// What the callbacks share during one transfer.
struct Transfer {
  CURL* handle = nullptr;
  HTTPResponse response;
  const HTTPLineHandler* onLine = nullptr; // null: read the whole body
  std::optional<bool> streaming;           // decided on the first body bytes, from the status
  std::string pendingLine;
  std::exception_ptr failure; // thrown by the line handler; rethrown after the transfer
  // Stall detection: libcurl's own low-speed limit averages over a five-second window, so a
  // server that goes quiet after a burst would be noticed seconds late.
  std::chrono::milliseconds stallLimit{0};
  std::chrono::steady_clock::time_point lastActivity = std::chrono::steady_clock::now();
  curl_off_t lastBytes = 0;
  bool stalled = false;
};

void deliverLines(Transfer& t, bool flushLast) {
  size_t start = 0;
  for (;;) {
    size_t end = t.pendingLine.find('\n', start);
    if (end == std::string::npos) break;
    std::string_view line(t.pendingLine.data() + start, end - start);
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    (*t.onLine)(line);
    start = end + 1;
  }
  t.pendingLine.erase(0, start);
  if (flushLast && !t.pendingLine.empty()) {
    std::string_view line(t.pendingLine);
    if (line.back() == '\r') line.remove_suffix(1);
    (*t.onLine)(line);
    t.pendingLine.clear();
  }
}

size_t onBody(char* data, size_t size, size_t count, void* userdata) {
  auto& t = *static_cast<Transfer*>(userdata);
  size_t bytes = size * count;
  if (!t.streaming) {
    long status = 0;
    curl_easy_getinfo(t.handle, CURLINFO_RESPONSE_CODE, &status);
    t.streaming = t.onLine != nullptr && status >= 200 && status <= 299;
  }
  if (!*t.streaming) {
    t.response.body.append(data, bytes);
    return bytes;
  }
  try {
    t.pendingLine.append(data, bytes);
    deliverLines(t, false);
  } catch (...) {
    t.failure = std::current_exception();
    return 0; // aborts the transfer with CURLE_WRITE_ERROR
  }
  return bytes;
}

size_t onHeader(char* data, size_t size, size_t count, void* userdata) {
  auto& t = *static_cast<Transfer*>(userdata);
  size_t bytes = size * count;
  std::string_view line(data, bytes);
  // Each status line (an interim "100 Continue" too) starts a fresh header block.
  if (line.rfind("HTTP/", 0) == 0) {
    t.response.headers.clear();
    return bytes;
  }
  auto colon = line.find(':');
  if (colon == std::string_view::npos) return bytes;
  t.response.headers.emplace_back(std::string(trim(line.substr(0, colon))),
                                  std::string(trim(line.substr(colon + 1))));
  return bytes;
}

int onProgress(void* userdata, curl_off_t, curl_off_t received, curl_off_t, curl_off_t sent) {
  if (isCancelled()) return 1;
  auto& t = *static_cast<Transfer*>(userdata);
  if (t.stallLimit.count() <= 0) return 0;
  auto now = std::chrono::steady_clock::now();
  if (received + sent != t.lastBytes) {
    t.lastBytes = received + sent;
    t.lastActivity = now;
  } else if (now - t.lastActivity >= t.stallLimit) {
    t.stalled = true;
    return 1;
  }
  return 0;
}

std::string noProxyList() {
  std::string list = "localhost,127.0.0.1,::1";
  for (const char* name : {"no_proxy", "NO_PROXY"}) {
    if (const char* value = std::getenv(name); value && *value) {
      // A lone "*" (no proxy for any host) only means that when it stands alone.
      list = std::string_view(value) == "*" ? std::string("*") : list + "," + value;
      break;
    }
  }
  return list;
}

std::string describeDuration(std::chrono::milliseconds limit) {
  auto ms = limit.count();
  if (ms % 1000 == 0) return std::to_string(ms / 1000) + (ms == 1000 ? " second" : " seconds");
  return formatFixed(static_cast<double>(ms) / 1000.0, 1) + " seconds";
}

[[noreturn]] void throwTransportError(CURLcode code, const HTTPRequest& request, CURL* handle,
                                      const char* detail) {
  using R = HTTPError::Reason;
  std::string host = hostOf(request.url);
  R reason = R::other;
  std::string text;
  switch (code) {
  case CURLE_COULDNT_RESOLVE_HOST:
    reason = R::unreachable;
    text = "the host name couldn't be resolved";
    break;
  case CURLE_COULDNT_RESOLVE_PROXY:
    reason = R::unreachable;
    text = "the proxy's host name couldn't be resolved";
    break;
  case CURLE_COULDNT_CONNECT: {
    reason = R::unreachable;
    long osError = 0;
    curl_easy_getinfo(handle, CURLINFO_OS_ERRNO, &osError);
    text = osError != 0 ? std::strerror(static_cast<int>(osError)) : "the connection failed";
    break;
  }
  case CURLE_OPERATION_TIMEDOUT: {
    curl_off_t connectedAt = 0;
    curl_easy_getinfo(handle, CURLINFO_CONNECT_TIME_T, &connectedAt);
    if (connectedAt == 0) {
      reason = R::timedOut;
      text = "no connection within " + describeDuration(request.connectTimeout);
    } else {
      reason = R::timedOut;
      text = "no complete answer within " + describeDuration(request.timeout);
    }
    break;
  }
  case CURLE_GOT_NOTHING:
    reason = R::cutOff;
    text = "the server closed the connection without answering";
    break;
  case CURLE_PARTIAL_FILE:
  case CURLE_RECV_ERROR:
    reason = R::cutOff;
    text = "the connection closed before the response was complete";
    break;
  case CURLE_SSL_CONNECT_ERROR:
  case CURLE_PEER_FAILED_VERIFICATION:
  case CURLE_SSL_CACERT_BADFILE:
  case CURLE_SSL_CERTPROBLEM:
    reason = R::unreachable;
    text = std::string("the secure connection failed (") +
           (*detail != '\0' ? detail : curl_easy_strerror(code)) + ")";
    break;
  default:
    text = *detail != '\0' ? detail : curl_easy_strerror(code);
    break;
  }
  throw HTTPError(reason, host, "Couldn't reach " + host + ": " + text);
}

HTTPResponse perform(const HTTPRequest& request, const HTTPLineHandler* onLine) {
  if (request.carriesSecret) requireSecureTransport(request.url);
  throwIfCancelled();
  initializeCurlOnce();

  std::unique_ptr<CURL, EasyDeleter> handle(curl_easy_init());
  if (!handle)
    throw HTTPError(HTTPError::Reason::other, hostOf(request.url),
                    "Couldn't reach " + hostOf(request.url) + ": out of memory");
  CURL* h = handle.get();

  std::unique_ptr<curl_slist, ListDeleter> headers;
  auto addHeader = [&](const std::string& line) {
    curl_slist* appended = curl_slist_append(headers.get(), line.c_str());
    if (appended) {
      (void)headers.release();
      headers.reset(appended);
    }
  };
  bool hasExpect = false;
  for (const auto& [name, value] : request.headers) {
    if (toLowerASCII(name) == "expect") hasExpect = true;
    // "Name;" is libcurl's way of sending a header with an empty value.
    addHeader(value.empty() ? name + ";" : name + ": " + value);
  }
  // A large body would otherwise wait a second for "100 Continue", which APIs don't send.
  if (!hasExpect) addHeader("Expect:");

  Transfer transfer;
  transfer.handle = h;
  transfer.onLine = onLine;
  char errorBuffer[CURL_ERROR_SIZE] = {};

  curl_easy_setopt(h, CURLOPT_URL, request.url.c_str());
  curl_easy_setopt(h, CURLOPT_PROTOCOLS_STR, "http,https");
  // Proxies come from the environment as libcurl reads them, except for loopback: a proxy would
  // reach its own machine there, not ours, so a local gateway or test server is reached directly.
  std::string noProxy = noProxyList();
  curl_easy_setopt(h, CURLOPT_NOPROXY, noProxy.c_str());
  curl_easy_setopt(h, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(h, CURLOPT_ERRORBUFFER, errorBuffer);
  curl_easy_setopt(h, CURLOPT_HTTPHEADER, headers.get());
  curl_easy_setopt(h, CURLOPT_USERAGENT, "Quillora");
  curl_easy_setopt(h, CURLOPT_ACCEPT_ENCODING, "");
  curl_easy_setopt(h, CURLOPT_TCP_KEEPALIVE, 1L);
  curl_easy_setopt(h, CURLOPT_WRITEFUNCTION, onBody);
  curl_easy_setopt(h, CURLOPT_WRITEDATA, &transfer);
  curl_easy_setopt(h, CURLOPT_HEADERFUNCTION, onHeader);
  curl_easy_setopt(h, CURLOPT_HEADERDATA, &transfer);
  curl_easy_setopt(h, CURLOPT_NOPROGRESS, 0L);
  curl_easy_setopt(h, CURLOPT_XFERINFOFUNCTION, onProgress);
  curl_easy_setopt(h, CURLOPT_XFERINFODATA, &transfer);
  curl_easy_setopt(h, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(request.connectTimeout.count()));
  curl_easy_setopt(h, CURLOPT_TIMEOUT_MS, static_cast<long>(request.timeout.count()));
  transfer.stallLimit = request.stallTimeout;

  std::string method = toUpperASCII(request.method);
  if (method == "GET" && request.body.empty()) {
    curl_easy_setopt(h, CURLOPT_HTTPGET, 1L);
  } else if (method == "HEAD") {
    curl_easy_setopt(h, CURLOPT_NOBODY, 1L);
  } else {
    if (!request.body.empty() || method == "POST") {
      curl_easy_setopt(h, CURLOPT_POSTFIELDSIZE_LARGE,
                       static_cast<curl_off_t>(request.body.size()));
      curl_easy_setopt(h, CURLOPT_POSTFIELDS, request.body.c_str());
    }
    if (method != "POST") curl_easy_setopt(h, CURLOPT_CUSTOMREQUEST, method.c_str());
  }

  CURLcode code = curl_easy_perform(h);
  if (transfer.failure) std::rethrow_exception(transfer.failure);
  if (transfer.stalled) {
    std::string host = hostOf(request.url);
    throw HTTPError(HTTPError::Reason::stalled, host,
                    "Couldn't reach " + host + ": the server sent nothing for " +
                        describeDuration(request.stallTimeout));
  }
  if (code == CURLE_ABORTED_BY_CALLBACK || isCancelled()) throw CancelledError();
  if (code != CURLE_OK) throwTransportError(code, request, h, errorBuffer);

  curl_easy_getinfo(h, CURLINFO_RESPONSE_CODE, &transfer.response.status);
  if (transfer.streaming.value_or(false)) deliverLines(transfer, true);
  return std::move(transfer.response);
}

} // namespace

std::optional<std::string> HTTPResponse::header(std::string_view name) const {
  std::string wanted = toLowerASCII(name);
  for (const auto& [key, value] : headers)
    if (toLowerASCII(key) == wanted) return value;
  return std::nullopt;
}

HTTPResponse sendHTTP(const HTTPRequest& request) {
  return perform(request, nullptr);
}

HTTPResponse sendHTTPStreaming(const HTTPRequest& request, const HTTPLineHandler& onLine) {
  return perform(request, &onLine);
}

std::string hostOf(const std::string& url) {
  initializeCurlOnce();
  std::unique_ptr<CURLU, URLDeleter> parsed(curl_url());
  if (!parsed) return url;
  if (curl_url_set(parsed.get(), CURLUPART_URL, url.c_str(), 0) != CURLUE_OK) return url;
  char* host = nullptr;
  if (curl_url_get(parsed.get(), CURLUPART_HOST, &host, 0) != CURLUE_OK || !host) return url;
  std::string result(host);
  curl_free(host);
  return result;
}

bool isLoopbackHost(std::string_view host) {
  std::string name = toLowerASCII(host);
  if (name.size() >= 2 && name.front() == '[' && name.back() == ']')
    name = name.substr(1, name.size() - 2);
  if (name == "localhost" || name == "::1") return true;
  in_addr address{};
  if (inet_pton(AF_INET, name.c_str(), &address) == 1) return (ntohl(address.s_addr) >> 24) == 127;
  return false;
}

void requireSecureTransport(const std::string& url) {
  std::string lowered = toLowerASCII(trim(url));
  if (lowered.rfind("https://", 0) == 0) return;
  std::string host = hostOf(url);
  if (lowered.rfind("http://", 0) == 0 && isLoopbackHost(host)) return;
  throw HTTPError(HTTPError::Reason::insecure, host,
                  "Refusing to send an API key to " + host +
                      " over plain http; use an https address (only loopback addresses may use "
                      "http).");
}

} // namespace quillora::base
