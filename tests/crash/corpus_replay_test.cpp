// Robustness: every fixture and bundled example, whole and mangled (cut short, bytes flipped,
// line breaks changed, binary noise), goes through the reader without throwing, and the report
// it gives holds together.
#include <gtest/gtest.h>

#include <filesystem>
#include <random>

#include "crash/apple_crash_log_reader.h"
#include "support/test_support.h"

namespace quillora::crash {
namespace {

std::vector<std::filesystem::path> inputs() {
  std::vector<std::filesystem::path> files;
  for (const auto& folder : {testing::fixture("crash"), testing::sourceDir() / "examples" / "crashes"}) {
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
      if (entry.is_regular_file() && entry.path().filename() != "SOURCES.tsv") files.push_back(entry.path());
    }
  }
  std::sort(files.begin(), files.end());
  return files;
}

std::vector<std::string> variants(const std::string& text, std::mt19937& random) {
  std::vector<std::string> out = {text};
  for (int cut = 1; cut <= 6; ++cut) out.push_back(text.substr(0, text.size() * static_cast<size_t>(cut) / 7));
  std::string flipped = text;
  for (size_t i = 0; i < flipped.size() / 50 + 1 && !flipped.empty(); ++i) {
    flipped[random() % flipped.size()] = static_cast<char>(random() % 256);
  }
  out.push_back(flipped);
  std::string crlf;
  std::string oneLine;
  for (char c : text) {
    if (c == '\n') crlf += '\r';
    crlf += c;
    oneLine += c == '\n' ? ' ' : c;
  }
  out.push_back(crlf);
  out.push_back(oneLine);
  std::string noise(4096, '\0');
  for (char& c : noise) c = static_cast<char>(random() % 256);
  out.push_back(text.substr(0, text.size() / 2) + noise + text.substr(text.size() / 2));
  return out;
}

void expectCoherent(const CrashReport& report, const std::string& what) {
  const ThreadTrace* crashed = report.crashedThread();
  EXPECT_EQ(crashed == nullptr, report.threads.empty()) << what;
  if (const StackFrame* blamed = report.blamedFrame()) EXPECT_TRUE(blamed->isInApp) << what;
  for (const ThreadTrace& thread : report.threads) {
    for (const StackFrame& frame : thread.frames) {
      if (report.rawText.find(frame.raw) == std::string::npos) {
        ADD_FAILURE() << what << ": a frame's raw line isn't in the text: " << frame.raw;
        return;
      }
    }
  }
  (void)report.summaryText();
  (void)report.title();
}

TEST(CorpusReplay, EveryInputAndItsMangledVariantsReadWithoutFailing) {
  std::mt19937 random(20261122);
  StackTraceParser parser({"com.mygame"});
  auto files = inputs();
  ASSERT_GT(files.size(), 40u);
  for (const auto& path : files) {
    std::string text = testing::readText(path);
    auto all = variants(text, random);
    for (size_t i = 0; i < all.size(); ++i) {
      std::string what = path.filename().string() + " variant " + std::to_string(i);
      CrashReport report;
      ASSERT_NO_THROW(report = readCrashText(all[i], parser)) << what;
      if (appleCrashLogKind(all[i]) != AppleCrashLogKind::ips) EXPECT_EQ(report.rawText, all[i]) << what;
      expectCoherent(report, what);
    }
  }
}

TEST(CorpusReplay, HostileShapesReadWithoutFailing) {
  const std::vector<std::string> texts = {
      std::string(1 << 20, 'a') + "!" + std::string(1 << 10, '['),  // one huge line
      std::string(200000, '\n'),
      "{\"bug_type\":\"309\"}\n" + std::string(10000, '[') + std::string(10000, ']'),
      "{\"bug_type\":\"309\"}\n{\"threads\":[{\"frames\":[{\"imageIndex\":-1,\"imageOffset\":\"x\"}]}],\"usedImages\":7}",
      "{\"bug_type\":\"309\"}\n{\"threads\":7,\"usedImages\":[1,{\"base\":-5}],\"asi\":[],\"exception\":3}",
      "Thread 0 Crashed:\n" + std::string(50000, '0') + "   x 0x1 y\n",
      "#00 pc " + std::string(5000, 'f') + " /a.so (" + std::string(3000, '(') + "\n",
      "at " + std::string(8000, 'a') + "(" + std::string(100, ')') + "\n",
      std::string(100000, '('),
      std::string("\0\xff\xfe garbage \x80", 14),
      "Thread 99999999999999999999 Crashed:\n",
      "",
  };
  StackTraceParser parser;
  for (size_t i = 0; i < texts.size(); ++i) {
    CrashReport report;
    ASSERT_NO_THROW(report = readCrashText(texts[i], parser)) << i;
    if (appleCrashLogKind(texts[i]) != AppleCrashLogKind::ips) EXPECT_EQ(report.rawText, texts[i]) << i;
    expectCoherent(report, "hostile " + std::to_string(i));
  }
}

}  // namespace
}  // namespace quillora::crash
