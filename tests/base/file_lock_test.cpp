#include "base/file_lock.h"
#include "base/repository_lock.h"
#include "support/test_support.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <thread>

namespace quillora::base {
namespace {

using namespace std::chrono_literals;
using quillora::testing::TempDir;

class FileLockTest : public ::testing::Test {
protected:
  void SetUp() override { ::setenv("QUILLORA_HOME", m_home.path().c_str(), 1); }
  void TearDown() override {
    if (m_holder > 0) {
      ::kill(m_holder, SIGKILL);
      ::waitpid(m_holder, nullptr, 0);
    }
  }

  // Forks a process that takes a lock with `take`, reports that it holds it, then runs `then`
  // (which should end the process) or waits until it is killed.
  template <typename Take, typename Then> void startHolder(Take take, Then then) {
    int ready[2];
    ASSERT_EQ(::pipe(ready), 0);
    m_holder = ::fork();
    ASSERT_GE(m_holder, 0);
    if (m_holder == 0) {
      ::close(ready[0]);
      take();
      char byte = 'x';
      if (::write(ready[1], &byte, 1) != 1) ::_exit(3);
      then();
      while (true)
        ::pause();
    }
    ::close(ready[1]);
    char byte = 0;
    ASSERT_EQ(::read(ready[0], &byte, 1), 1);
    ::close(ready[0]);
  }

  TempDir m_home;
  pid_t m_holder = -1;
};

TEST_F(FileLockTest, LocksExcludeEachOtherInOneProcessAndTheFileStaysWithMode0644) {
  ::umask(022);
  {
    FileLock first("history.lock");
    FileLock second("history.lock");
    EXPECT_TRUE(first.tryLock());
    EXPECT_FALSE(second.tryLock());
    first.unlock();
    EXPECT_FALSE(first.isLocked());
    EXPECT_TRUE(second.tryLock());
    EXPECT_EQ(second.path(), m_home.path() / "history.lock");
  }
  struct stat info {};
  ASSERT_EQ(::stat((m_home.path() / "history.lock").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0644u);
}

TEST_F(FileLockTest, WaiterProceedsOnceTheOtherProcessIsGone) {
  auto done = m_home.path() / "holder-done";
  startHolder(
      [] {
        static FileLock held("cost-ledger.lock");
        held.lock();
      },
      [&] {
        std::this_thread::sleep_for(300ms);
        ::close(::creat(done.c_str(), 0644));
        ::_exit(0); // no clean-up runs, as for a killed holder: the kernel releases the lock
      });
  FileLock lock("cost-ledger.lock");
  EXPECT_FALSE(lock.tryLock());
  lock.lock();
  EXPECT_TRUE(std::filesystem::exists(done));
}

TEST(RepositoryLock, FileNameKeepsTheLast80CharactersOfTheSanitisedPath) {
  struct Case {
    std::string repository;
    std::string name;
  } cases[] = {
      {"/Users/me/Games/My Game", "repo-_Users_me_Games_My_Game.lock"},
      {"/Users/me/./Games/x/../My Game/", "repo-_Users_me_Games_My_Game.lock"},
      {"/Users/me/Café-2", "repo-_Users_me_Caf__2.lock"},
      {"/projects/" + std::string(90, 'a') + "/Cafe Game",
       "repo-" + std::string(70, 'a') + "_Cafe_Game.lock"},
  };
  for (const auto& c : cases)
    EXPECT_EQ(RepositoryLock::fileName(c.repository), c.name);
}

TEST_F(FileLockTest, RepositoryLockWaitsSayingSoOnceThenProceeds) {
  auto repository = m_home.path() / "My Game";
  auto done = m_home.path() / "holder-done";
  startHolder([&] { static RepositoryLock held(repository, nullptr); },
              [&] {
                std::this_thread::sleep_for(400ms);
                ::close(::creat(done.c_str(), 0644));
                ::_exit(0);
              });
  std::vector<std::string> messages;
  {
    RepositoryLock lock(
        repository, [&](const std::string& m) { messages.push_back(m); },
        RepositoryLockTiming{50ms, 10s});
    EXPECT_TRUE(std::filesystem::exists(done));
    // Held now: a second task in this process waits too.
    EXPECT_THROW(RepositoryLock(repository, nullptr, RepositoryLockTiming{10ms, 0ms}), LockError);
  }
  EXPECT_EQ(messages,
            std::vector<std::string>{"Waiting for another Quillora task in My Game to finish…"});
  RepositoryLock again(repository, [&](const std::string& m) { messages.push_back(m); });
  EXPECT_EQ(messages.size(), 1u);
}

TEST_F(FileLockTest, RepositoryLockGivesUpWhenTheRepositoryStaysBusy) {
  auto repository = m_home.path() / "My Game";
  startHolder([&] { static RepositoryLock held(repository, nullptr); }, [] {});
  std::vector<std::string> messages;
  try {
    RepositoryLock lock(
        repository, [&](const std::string& m) { messages.push_back(m); },
        RepositoryLockTiming{50ms, 300ms});
    FAIL() << "the lock was taken";
  } catch (const LockError& error) {
    EXPECT_STREQ(error.what(), "My Game has been busy with another Quillora task for 15 minutes.");
  }
  EXPECT_EQ(messages.size(), 1u);
}

TEST_F(FileLockTest, RepositoryLockWithoutALockFileFails) {
  auto repository = m_home.path() / "My Game";
  std::filesystem::create_directory(m_home.path() / RepositoryLock::fileName(repository));
  try {
    RepositoryLock lock(repository, nullptr);
    FAIL() << "the lock was taken";
  } catch (const LockError& error) {
    EXPECT_STREQ(error.what(), "Couldn't create a lock file for My Game.");
  }
}

} // namespace
} // namespace quillora::base
