// The history store on disk: record files, the index, rebuilds, pruning, several processes.
#include "history/history_store.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <set>

#include <fmt/format.h>

#include "base/json.h"
#include "base/notifications.h"
#include "base/regex.h"
#include "support/history_samples.h"
#include "support/test_support.h"

namespace quillora::testing {
namespace {

namespace fs = std::filesystem;
using history::AnalysisRecord;
using history::HistoryStore;

base::Json readJson(const fs::path& path) { return *base::parseJson(readText(path)); }

std::string isoDate(int day, int minute = 0) {
  return fmt::format("2026-10-{:02}T09:{:02}:00Z", day, minute);
}

AnalysisRecord recordOn(int day, const std::string& title, int minute = 0) {
  return sampleRecord(unityCrash(), title, isoDate(day, minute), "sig-" + title);
}

// Writes `count` record files and a matching index directly, oldest first by one minute each,
// far faster than `count` saves.
std::vector<std::string> fillStore(const fs::path& folder, size_t count) {
  fs::create_directories(folder / "history");
  base::Json summaries = base::Json::array();
  std::vector<std::string> ids;
  AnalysisRecord record = recordOn(1, "filler");
  for (size_t i = 0; i < count; ++i) {
    record.id = fmt::format("00000000-0000-4000-8000-{:012}", i);
    record.date = *base::parseISO8601("2026-01-01T00:00:00Z") + std::chrono::minutes(i);
    std::ofstream(folder / "history" / (record.id + ".json")) << base::dumpJsonCompact(history::toJson(record));
    summaries.insert(summaries.begin(), history::toJson(history::makeSummary(record)));
    ids.push_back(record.id);
  }
  base::Json index = {{"version", 1}, {"signatureVersion", 1}, {"summaries", summaries}};
  std::ofstream(folder / "history" / "index.json") << base::dumpJson(index);
  return ids;
}

class HistoryStoreTest : public ::testing::Test {
 protected:
  TempDir home;
  fs::path historyDir() const { return home.path() / "history"; }
};

TEST_F(HistoryStoreTest, SavesARecordFileAndTheIndexUnderAnUpperCaseUUID) {
  HistoryStore store(home.path());
  AnalysisRecord record = recordOn(20, "Player used after destroy");
  record.subject.kind = "crashReport";
  record.subject.source = "crashlytics";
  record.subject.appName = "Space Miners";
  record.subject.issueTitle = "NullReferenceException in Player.Update";
  record.costUSD = 0.0421;
  std::string id = store.save(record);

  static const base::Regex kUUID("^[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}$");
  EXPECT_TRUE(kUUID.test(id)) << id;
  auto file = readJson(historyDir() / (id + ".json"));
  EXPECT_EQ(file["id"], id);
  EXPECT_EQ(file["date"], "2026-10-20T09:00:00Z");
  EXPECT_EQ(file["analysis"]["title"], "Player used after destroy");
  EXPECT_FALSE(file.contains("branch"));  // absent optionals are left out
  auto index = readJson(historyDir() / "index.json");
  EXPECT_EQ(index["version"], 1);
  EXPECT_EQ(index["signatureVersion"], 1);
  ASSERT_EQ(index["summaries"].size(), 1u);
  EXPECT_EQ(index["summaries"][0]["subjectLine"],
            "Crashlytics: Space Miners · NullReferenceException in Player.Update");
  EXPECT_EQ(index["summaries"][0]["rootCauseExcerpt"], "The player object is used after it was destroyed.");
  EXPECT_EQ(index["summaries"][0]["tokens"], base::Json::array({"game.player.update"}));

  record.id = id;
  EXPECT_EQ(HistoryStore(home.path()).load(id), record);
  EXPECT_FALSE(fs::exists(historyDir() / "index.pending"));
}

TEST_F(HistoryStoreTest, SavingThe5001stRecordDeletesTheOldestFile) {
  auto ids = fillStore(home.path(), 5000);
  HistoryStore store(home.path());
  std::string id = store.save(recordOn(2, "newest"));
  auto summaries = store.summaries();
  ASSERT_EQ(summaries->size(), 5000u);
  EXPECT_EQ(summaries->front().id, id);
  EXPECT_EQ(summaries->back().id, ids[1]);
  EXPECT_FALSE(fs::exists(historyDir() / (ids[0] + ".json")));
  EXPECT_TRUE(fs::exists(historyDir() / (ids[1] + ".json")));
  EXPECT_EQ(readJson(historyDir() / "index.json")["summaries"].size(), 5000u);
}

TEST_F(HistoryStoreTest, ResolvesFullIdsAndPrefixesOfSixOrMoreCharacters) {
  fs::create_directories(historyDir());
  HistoryStore store(home.path());
  AnalysisRecord older = recordOn(1, "older");
  older.id = "ABCDEF11-0000-4000-8000-000000000001";
  AnalysisRecord newer = recordOn(2, "newer");
  newer.id = "ABCDEF22-0000-4000-8000-000000000002";
  AnalysisRecord shortID = recordOn(3, "short");
  shortID.id = "ABCDE";
  store.save(older);
  store.save(newer);
  store.save(shortID);

  struct Case {
    std::string reference;
    std::optional<std::string> title;
  };
  for (const Case& c : std::vector<Case>{
           {"ABCDEF11-0000-4000-8000-000000000001", "older"},
           {"ABCDEF1", "older"},
           {"abcdef11", "older"},
           {"ABCDEF", "newer"},  // ambiguous: the newest wins
           {"ABCDE", "short"},   // five characters: only an exact id
           {"ABCD", std::nullopt},
           {"ABCDEF3", std::nullopt},
       }) {
    auto found = store.resolve(c.reference);
    EXPECT_EQ(found ? std::optional(found->title) : std::nullopt, c.title) << c.reference;
  }
  fs::remove(historyDir() / "ABCDE.json");
  EXPECT_EQ(store.resolve("ABCDEF1")->id, older.id);
  EXPECT_FALSE(store.load("ABCDE"));  // in the index, file gone: missing
}

TEST_F(HistoryStoreTest, RebuildsAnIndexItCannotUseFromTheReadableRecords) {
  struct Case {
    std::string name;
    std::function<void(const fs::path&)> damage;
  };
  std::vector<Case> cases = {
      {"missing", [](const fs::path& index) { fs::remove(index); }},
      {"not JSON", [](const fs::path& index) { std::ofstream(index) << "{\"version\": 1, "; }},
      {"not an object", [](const fs::path& index) { std::ofstream(index) << "[]"; }},
      {"a directory", [](const fs::path& index) { fs::remove(index); fs::create_directory(index); }},
      {"other version", [](const fs::path& index) {
         std::ofstream(index) << R"({"version": 2, "signatureVersion": 1, "summaries": []})"; }},
      {"no signature version", [](const fs::path& index) {
         std::ofstream(index) << R"({"version": 1, "summaries": []})"; }},
  };
  for (const Case& c : cases) {
    TempDir folder;
    {
      HistoryStore writer(folder.path());
      writer.save(recordOn(1, "first"));
      writer.save(recordOn(2, "second"));
      writer.save(recordOn(3, "third"));
      // Files a rebuild must pass over: a broken record and a stranger.
      std::string broken = writer.save(recordOn(4, "broken"));
      std::ofstream(folder.path() / "history" / (broken + ".json")) << "{\"id\": \"" << broken << "\"";
      std::ofstream(folder.path() / "history" / "notes.txt") << "not a record";
    }
    fs::path index = folder.path() / "history" / "index.json";
    c.damage(index);
    HistoryStore store(folder.path());
    auto summaries = store.summaries();
    ASSERT_EQ(summaries->size(), 3u) << c.name;
    EXPECT_EQ(summaries->at(0).title, "third") << c.name;
    EXPECT_EQ(summaries->at(2).title, "first") << c.name;
    // A directory can't be replaced by a rename; the store still answers from the files.
    if (fs::is_directory(index)) continue;
    auto rewritten = readJson(index);
    EXPECT_EQ(rewritten["version"], 1) << c.name;
    EXPECT_EQ(rewritten["signatureVersion"], 1) << c.name;
    EXPECT_EQ(rewritten["summaries"].size(), 3u) << c.name;
  }
}

TEST_F(HistoryStoreTest, RebuildsAnIndexOfAnotherSignatureVersionWithSignaturesRecomputed) {
  {
    HistoryStore writer(home.path());
    writer.save(recordOn(1, "first"));
    writer.save(recordOn(2, "second"));
  }
  auto index = readJson(historyDir() / "index.json");
  index["signatureVersion"] = 2;
  std::ofstream(historyDir() / "index.json") << base::dumpJson(index);

  HistoryStore store(home.path());
  store.setSignatureFunction([](const AnalysisRecord& r) { return "v1:" + r.analysis.title; });
  auto summaries = store.summaries();
  ASSERT_EQ(summaries->size(), 2u);
  EXPECT_EQ(summaries->at(0).signature, "v1:second");
  EXPECT_EQ(summaries->at(1).signature, "v1:first");
  auto rewritten = readJson(historyDir() / "index.json");
  EXPECT_EQ(rewritten["signatureVersion"], 1);
  EXPECT_EQ(rewritten["summaries"][0]["signature"], "v1:second");
}

TEST_F(HistoryStoreTest, OneUndecodableSummaryDoesNotHideTheOthers) {
  {
    HistoryStore writer(home.path());
    writer.save(recordOn(1, "first"));
    writer.save(recordOn(2, "second"));
    writer.save(recordOn(3, "third"));
  }
  auto index = readJson(historyDir() / "index.json");
  index["summaries"][1]["date"] = "yesterday";
  index["summaries"].push_back("not a summary");
  index["summaries"].push_back({{"id", "../../etc/passwd"}, {"date", "2026-10-01T00:00:00Z"}});
  std::string text = base::dumpJson(index);
  std::ofstream(historyDir() / "index.json") << text;

  HistoryStore store(home.path());
  auto summaries = store.summaries();
  ASSERT_EQ(summaries->size(), 2u);
  EXPECT_EQ(summaries->at(0).title, "third");
  EXPECT_EQ(summaries->at(1).title, "first");
  EXPECT_EQ(readText(historyDir() / "index.json"), text);  // kept, not rebuilt
}

TEST_F(HistoryStoreTest, ReusesTheSnapshotUntilAnotherWriterChangesTheIndex) {
  HistoryStore reader(home.path());
  HistoryStore writer(home.path());
  writer.save(recordOn(1, "first"));
  auto first = reader.summaries();
  EXPECT_EQ(reader.summaries().get(), first.get());
  EXPECT_EQ(reader.matchIndex().get(), reader.matchIndex().get());
  writer.save(recordOn(2, "second"));
  auto second = reader.summaries();
  EXPECT_NE(second.get(), first.get());
  ASSERT_EQ(second->size(), 2u);
  EXPECT_EQ(first->size(), 1u);  // a held snapshot stays as it was
}

TEST_F(HistoryStoreTest, UpdatesARecordAndRefreshesItsSummaryInPlace) {
  HistoryStore store(home.path());
  std::string older = store.save(recordOn(1, "first"));
  store.save(recordOn(2, "second"));
  int notified = 0;
  auto token = base::addChangeObserver("history", [&] { ++notified; });
  auto updated = store.update(older, [](AnalysisRecord& r) {
    r.branch = "quillora/fix-player";
    r.verification = "verified";
    r.id = "something else";
  });
  base::removeChangeObserver(token);
  EXPECT_EQ(updated.id, older);
  EXPECT_EQ(notified, 1);
  EXPECT_TRUE(fs::exists(base::changeSignalPath(home.path(), "history")));
  auto summaries = store.summaries();
  ASSERT_EQ(summaries->size(), 2u);
  EXPECT_EQ(summaries->at(1).id, older);
  EXPECT_EQ(summaries->at(1).branch, "quillora/fix-player");
  EXPECT_EQ(store.load(older)->verification, "verified");
  try {
    store.update("FFFFFFFF-0000-4000-8000-000000000000", [](AnalysisRecord&) {});
    FAIL() << "no error";
  } catch (const history::HistoryError& error) {
    EXPECT_STREQ(error.what(), "No history record FFFFFFFF-0000-4000-8000-000000000000.");
  }
}

TEST_F(HistoryStoreTest, SearchesTextFieldsAndTheSourceNameRegardlessOfCase) {
  HistoryStore store(home.path());
  AnalysisRecord sentry = recordOn(1, "Inventory overflow");
  sentry.subject.kind = "crashReport";
  sentry.subject.source = "sentry";
  store.save(sentry);
  store.save(recordOn(2, "Écran noir au démarrage"));
  store.save(recordOn(3, "Player used after destroy"));
  size_t total = 0;
  auto titles = [](const std::vector<history::AnalysisSummary>& found) {
    std::vector<std::string> out;
    for (const auto& s : found) out.push_back(s.title);
    return out;
  };
  EXPECT_EQ(titles(store.search("SENTRY", 50, &total)), std::vector<std::string>{"Inventory overflow"});
  EXPECT_EQ(titles(store.search("écran", 50, &total)), std::vector<std::string>{"Écran noir au démarrage"});
  EXPECT_EQ(titles(store.search("game.player", 2, &total)),
            (std::vector<std::string>{"Player used after destroy", "Écran noir au démarrage"}));
  EXPECT_EQ(total, 3u);
  EXPECT_TRUE(store.search("sig-", 50, &total).size() == 3);  // the signature is searched too
  EXPECT_TRUE(store.search("no such words", 50, &total).empty());
  EXPECT_EQ(total, 0u);
}

// Past the limit, matches are counted from the index text; the count must be what decoding
// every summary gives.
TEST_F(HistoryStoreTest, CountsSearchMatchesBeyondTheLimitAsDecodingWould) {
  HistoryStore store(home.path());
  std::vector<AnalysisRecord> records = {recordOn(1, "Inventory overflow"), recordOn(2, "Écran noir"),
                                         recordOn(3, "Player crash"), recordOn(4, "Store purchase")};
  records[0].subject.kind = "crashReport";
  records[0].subject.source = "googleplay";
  records[1].repoPath = "C:\\Games\\Miner";
  records[2].platform = crash::CrashPlatform::androidJava;
  records[3].subject.kind = "crashReport";
  records[3].subject.source = "appstore";
  records[3].ticketKeys = {"SHOP-1", "SHOP-22"};
  for (int round = 0; round < 3; ++round) {
    for (auto record : records) store.save(record);
  }
  auto index = readJson(historyDir() / "index.json");
  index["summaries"][2]["issueID"] = 4242;       // a number where text belongs
  index["summaries"][3]["date"] = "not a date";  // undecodable
  index["summaries"][4]["title"] = "Ecran \u00e9";
  std::ofstream(historyDir() / "index.json") << base::dumpJson(index);

  for (std::string query : {"google play", "app store", "ecran", "écran", "games\\miner", "android",
                            "shop-2", "4242", "player", "e", "zzz", "unity"}) {
    size_t exact = 0, quick = 0;
    store.search(query, 5000, &exact);
    auto first = store.search(query, 1, &quick);
    EXPECT_EQ(quick, exact) << query;
    EXPECT_EQ(first.size(), exact > 0 ? 1u : 0u) << query;
  }
  size_t all = 0;
  store.search("e", 5000, &all);
  EXPECT_EQ(all, 11u);  // one summary has no usable date
}

// Eight processes save at the same moment; each waits on a pipe so they really start together.
TEST_F(HistoryStoreTest, EightProcessesSavingAtOnceLeaveEightRecords) {
  int gate[2];
  ASSERT_EQ(::pipe(gate), 0);
  std::vector<pid_t> children;
  for (int i = 0; i < 8; ++i) {
    pid_t pid = ::fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
      ::close(gate[1]);
      char byte;
      while (::read(gate[0], &byte, 1) < 0) {}
      int code = 0;
      try {
        HistoryStore store(home.path());
        store.save(recordOn(1 + i, "writer " + std::to_string(i)));
      } catch (...) {
        code = 1;
      }
      ::_exit(code);
    }
    children.push_back(pid);
  }
  ::close(gate[0]);
  ::close(gate[1]);  // releases every child at once
  for (pid_t pid : children) {
    int status = 0;
    ::waitpid(pid, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  }
  auto index = readJson(historyDir() / "index.json");
  std::set<std::string> ids;
  for (const auto& s : index["summaries"]) ids.insert(s["id"].get<std::string>());
  EXPECT_EQ(ids.size(), 8u);
  EXPECT_EQ(index["summaries"].size(), 8u);
  for (const auto& id : ids) EXPECT_TRUE(fs::exists(historyDir() / (id + ".json"))) << id;
  EXPECT_FALSE(fs::exists(historyDir() / "index.pending"));
}

// A writer killed by the kernel while it writes the index (the file-size limit lets the small
// record through and stops the larger index) leaves a store that rebuilds with every record.
TEST_F(HistoryStoreTest, AWriterDyingBetweenRecordAndIndexLosesNothing) {
  fillStore(home.path(), 40);
  auto indexSize = fs::file_size(historyDir() / "index.json");
  pid_t pid = ::fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) {
    HistoryStore store(home.path());
    struct rlimit limit {};
    limit.rlim_cur = limit.rlim_max = indexSize / 2;
    ::setrlimit(RLIMIT_FSIZE, &limit);
    store.save(recordOn(20, "the last one"));
    ::_exit(0);
  }
  int status = 0;
  ::waitpid(pid, &status, 0);
  ASSERT_TRUE(WIFSIGNALED(status)) << "the writer wasn't stopped half-way";
  EXPECT_EQ(WTERMSIG(status), SIGXFSZ);
  EXPECT_EQ(readJson(historyDir() / "index.json")["summaries"].size(), 40u);  // the old index
  ASSERT_TRUE(fs::exists(historyDir() / "index.pending"));

  HistoryStore store(home.path());
  auto summaries = store.summaries();
  ASSERT_EQ(summaries->size(), 41u);
  EXPECT_EQ(summaries->front().title, "the last one");
  EXPECT_EQ(readJson(historyDir() / "index.json")["summaries"].size(), 41u);
  EXPECT_FALSE(fs::exists(historyDir() / "index.pending"));
}

}  // namespace
}  // namespace quillora::testing
