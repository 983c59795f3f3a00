#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/json.h"

namespace quillora::crash {

// A sample event fetched from a crash service, before it is rendered to text and parsed. The
// service clients fill it; nothing here interprets it.
struct NormalizedCrash {
  struct Frame {
    std::string function;
    std::string module;
    std::optional<std::string> file;
    std::optional<int> line;
    std::optional<int> column;
    std::optional<bool> inApp;  // the service's own verdict; absent when it gives none
    std::optional<std::string> address;
  };
  struct Exception {
    std::string type;
    std::string message;
    std::vector<Frame> frames;
    bool isCrashed = false;
  };
  struct Thread {
    std::string name;
    bool crashed = false;
    std::vector<Frame> frames;
  };

  std::string platformHint;  // the service's platform or SDK name
  std::vector<Exception> exceptions;
  std::vector<Thread> threads;
  std::optional<std::string> rawText;
  std::optional<std::string> appVersion;
  std::optional<std::string> device;
  std::optional<std::string> os;
  std::optional<std::string> eventTime;
  std::optional<std::string> bundleID;
  std::vector<std::string> breadcrumbs;
  std::vector<std::pair<std::string, std::string>> tags;
  std::vector<std::string> logs;
  std::vector<std::string> extra;
};

// JSON with the field names as keys (absent optionals as null; tags as [key, value] pairs).
// Decoding is lenient: missing keys take defaults and malformed list elements are skipped.
void to_json(base::Json& json, const NormalizedCrash::Frame& frame);
void from_json(const base::Json& json, NormalizedCrash::Frame& frame);
void to_json(base::Json& json, const NormalizedCrash::Exception& exception);
void from_json(const base::Json& json, NormalizedCrash::Exception& exception);
void to_json(base::Json& json, const NormalizedCrash::Thread& thread);
void from_json(const base::Json& json, NormalizedCrash::Thread& thread);
void to_json(base::Json& json, const NormalizedCrash& crash);
void from_json(const base::Json& json, NormalizedCrash& crash);

}  // namespace quillora::crash
