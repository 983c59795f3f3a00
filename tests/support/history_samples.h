#pragma once

#include <string>

#include "crash/crash_report.h"
#include "history/analysis_record.h"

// Crashes and records for the history tests, built by hand so that each test says exactly which
// frames, addresses and lines differ.
namespace quillora::testing {

struct NativeFrame {
  std::string symbol;  // as a symbolicated native trace gives it, offset included
  std::string file;
  int line = 0;
  bool isInApp = true;
};

// A native crash (EXC_BAD_ACCESS) whose crashed thread holds `frames`, each with its own load
// address derived from `build` so that two builds differ in every address.
crash::CrashReport nativeCrash(const std::vector<NativeFrame>& frames, int build,
                               std::string exceptionType = "EXC_BAD_ACCESS (SIGSEGV)",
                               std::string message = "KERN_INVALID_ADDRESS at 0x0000000000000010");

// A record of `report` analysed on `isoDate` ("2026-11-20T14:03:00Z") with the given title; the
// signature is `signature`.
history::AnalysisRecord sampleRecord(const crash::CrashReport& report, const std::string& title,
                                     const std::string& isoDate, const std::string& signature);

// A small Unity crash used where the crash itself doesn't matter.
crash::CrashReport unityCrash(const std::string& symbol = "Game.Player.Update ()");

}  // namespace quillora::testing
