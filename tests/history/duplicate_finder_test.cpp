// The duplicate finder: frame keys, and which earlier analyses a new crash is matched with.
#include "history/duplicate_finder.h"

#include <gtest/gtest.h>

#include "history/crash_tokens.h"
#include "support/history_samples.h"
#include "support/test_support.h"

namespace quillora::testing {
namespace {

using history::DuplicateFinder;
using history::HistoryStore;

TEST(FrameKey, DropsWhatDiffersBetweenBuilds) {
  struct Case {
    std::string symbol;
    std::string key;
  };
  for (const Case& c : std::vector<Case>{
           {"Game.Player.Update (System.Single dt)", "game.player.update"},
           {"GameCore::Player::TakeDamage(int) + 48", "gamecore::player::takedamage"},
           {"-[GameViewController viewDidLoad] + 212", "-[gameviewcontroller viewdidload]"},
           {"com.game.Player.onHit(Player.java:120)", "com.game.player.onhit"},
           {"Game.Enemy.<Attack>b__12_0 () [0x0001c] in <4a6b…>:0", "game.enemy.<attack>b__#_#"},
           {"lambda$onCreate$0", "lambda$oncreate$#"},
           {"0x0000000104a8c1f4 + 1234", ""},
           {"  f(x)  ", "f(x)"},
       }) {
    EXPECT_EQ(history::frameKey(c.symbol), c.key) << c.symbol;
  }
}

TEST(FrameTokens, KeepsInAppFramesWhenThereAreAny) {
  auto report = nativeCrash({{"abort + 8", "", 0, false},
                             {"GameCore::Player::TakeDamage(int) + 48", "Player.cpp", 42},
                             {"GameCore::Enemy::Attack() + 12", "Enemy.cpp", 88},
                             {"GameCore::Player::TakeDamage(int) + 60", "Player.cpp", 44}},
                            1);
  auto lines = history::topFrameLines(report, 15);
  ASSERT_EQ(lines.size(), 4u);
  EXPECT_EQ(lines[1], "1 ★ SpaceMiners  GameCore::Player::TakeDamage(int) + 48 (Player.cpp:42)");
  EXPECT_EQ(history::frameTokens(lines),
            (std::vector<std::string>{"gamecore::player::takedamage", "gamecore::enemy::attack"}));
  EXPECT_EQ(history::frameTokens({"0   libsystem_kernel.dylib  __pthread_kill + 8"}),
            std::vector<std::string>{"__pthread_kill"});
}

TEST(TextTokens, AreWordsWithoutNumbersOrFiller) {
  EXPECT_EQ(history::textTokens({"NullReferenceException", "Object reference not set to an instance of an object 0x1f id42",
                                 "_player.Update"}),
            (std::vector<std::string>{"instance", "nullreferenceexception", "object", "player", "reference",
                                      "set", "update"}));
}

// A crash of the game in two builds: other addresses, offsets and line numbers, the same code.
std::vector<NativeFrame> takeDamageCrash(int lineShift, int offsetShift) {
  auto offset = [&](int base) { return " + " + std::to_string(base + offsetShift); };
  return {{"__pthread_kill" + offset(8), "", 0, false},
          {"GameCore::Player::TakeDamage(int)" + offset(48), "Player.cpp", 42 + lineShift},
          {"GameCore::Enemy::Attack()" + offset(12), "Enemy.cpp", 88 + lineShift},
          {"GameCore::Enemy::Update(float)" + offset(30), "Enemy.cpp", 30 + lineShift},
          {"GameCore::GameLoop::Tick(float)" + offset(96), "GameLoop.cpp", 210 + lineShift}};
}

// Another crash in the same file, reached through the same game loop.
std::vector<NativeFrame> healCrash() {
  return {{"__pthread_kill + 8", "", 0, false},
          {"GameCore::Player::Heal(int) + 20", "Player.cpp", 120},
          {"GameCore::Inventory::UsePotion() + 64", "Inventory.cpp", 55},
          {"GameCore::GameLoop::Tick(float) + 96", "GameLoop.cpp", 210}};
}

class DuplicateFinderTest : public ::testing::Test {
 protected:
  TempDir home;
  HistoryStore store{home.path()};
  DuplicateFinder finder{{std::make_shared<history::HistoryDuplicateSource>(store)}};
};

TEST_F(DuplicateFinderTest, MatchesTheSameCrashFromAnotherBuildAboveADifferentCrashInTheSameFile) {
  std::string sameCrash = store.save(sampleRecord(nativeCrash(takeDamageCrash(0, 0), 1),
                                                  "Player damaged after death", "2026-10-01T10:00:00Z", "build-1-sig"));
  std::string otherCrash = store.save(sampleRecord(nativeCrash(healCrash(), 1), "Heal overflows health",
                                                   "2026-10-05T10:00:00Z", "heal-sig"));
  std::string unity = store.save(sampleRecord(unityCrash(), "Unity null player", "2026-10-06T10:00:00Z", "unity-sig"));

  auto newBuild = nativeCrash(takeDamageCrash(3, 4), 2);
  auto matches = finder.find(newBuild, "build-2-sig");
  ASSERT_FALSE(matches.empty());
  EXPECT_EQ(matches[0].item.recordID, sameCrash);
  EXPECT_EQ(matches[0].item.kind, "history");
  EXPECT_EQ(matches[0].basis, "frames");
  EXPECT_EQ(matches[0].reason, "same top frames and exception type");
  EXPECT_GE(matches[0].score, 0.9);
  for (size_t i = 1; i < matches.size(); ++i) {
    EXPECT_LT(matches[i].score, matches[0].score);
    EXPECT_NE(matches[i].item.recordID, unity);
  }
  auto other = std::find_if(matches.begin(), matches.end(),
                            [&](const auto& m) { return m.item.recordID == otherCrash; });
  if (other != matches.end()) EXPECT_LE(other->score, 0.75);
}

TEST_F(DuplicateFinderTest, AnEqualSignatureComesFirstWithScoreOne) {
  std::string exact = store.save(sampleRecord(unityCrash("Game.Shop.Buy ()"), "Shop null", "2026-10-01T10:00:00Z", "shop-sig"));
  store.save(sampleRecord(nativeCrash(takeDamageCrash(0, 0), 1), "Player damaged", "2026-10-09T10:00:00Z", "build-1-sig"));
  auto matches = finder.find(nativeCrash(takeDamageCrash(0, 0), 3), "shop-sig");
  ASSERT_EQ(matches.size(), 2u);
  EXPECT_EQ(matches[0].item.recordID, exact);
  EXPECT_EQ(matches[0].score, 1.0);
  EXPECT_EQ(matches[0].basis, "signature");
  EXPECT_EQ(matches[0].reason, "same crash signature");
  EXPECT_EQ(matches[1].basis, "frames");
}

TEST_F(DuplicateFinderTest, FallsBackToTheWordsOfTheExceptionWhenFramesDontHelp) {
  auto unsymbolicated = [](int build) {
    return nativeCrash({{"0x0000000104a8c1f4 + " + std::to_string(1234 + build), "", 0, true}}, build,
                       "EXC_CRASH (SIGABRT)", "Fatal error: Inventory slot index out of range");
  };
  std::string earlier = store.save(sampleRecord(unsymbolicated(1), "Inventory slot out of range",
                                                "2026-10-01T10:00:00Z", "a"));
  auto matches = finder.find(unsymbolicated(2), "b");
  ASSERT_EQ(matches.size(), 1u);
  EXPECT_EQ(matches[0].item.recordID, earlier);
  EXPECT_EQ(matches[0].basis, "text");
  EXPECT_DOUBLE_EQ(matches[0].score, 0.7);
}

TEST_F(DuplicateFinderTest, FindsNothingForAnUnrelatedCrashOrAnEmptyHistory) {
  EXPECT_TRUE(finder.find(unityCrash(), "x").empty());
  store.save(sampleRecord(unityCrash(), "Unity null player", "2026-10-06T10:00:00Z", "unity-sig"));
  EXPECT_TRUE(finder.find(nativeCrash(healCrash(), 1, "SIGFPE", "Integer divide by zero"), "heal").empty());
}

}  // namespace
}  // namespace quillora::testing
