#include "cli/command_line.h"

#include <cstdlib>
#include <exception>
#include <iostream>

#include "base/cancellation.h"
#include "base/error.h"
#include "base/files.h"
#include "base/secrets.h"
#include "base/settings.h"
#include "cli/cli_output.h"
#include "cli/command_context.h"
#include "cli/commands/commands.h"
#include "cli/usage.h"

namespace quillora::cli {

int exitCodeForKind(const std::string& kind) {
  if (kind == "usage" || kind == "config") return 2;
  if (kind == "budget") return 3;
  if (kind == "unverified") return 5;
  return 1;
}

base::Json jsonResultHead(const std::string& command, bool ok) {
  return {{"schemaVersion", kJsonSchemaVersion}, {"command", command}, {"ok", ok}};
}

void writeUserFile(const std::string& path, const std::string& text) {
  base::writeFileAtomically(path, text);
  CLIOutput::shared().progress("Wrote " + path);
}

void writeResult(const CommandContext& context, const std::string& text) {
  if (auto out = context.args.value("out")) {
    writeUserFile(*out, text);
  } else {
    CLIOutput::shared().result(text);
  }
}

void writeJsonResult(const CommandContext& context, const base::Json& document) {
  writeResult(context, base::dumpJson(document) + "\n");
}

namespace {

using CommandFunction = int (*)(CommandContext&);

CommandFunction commandFunction(const std::string& name) {
  if (name == "analyze") return runAnalyze;
  if (name == "triage") return runTriage;
  if (name == "symbolicate") return runSymbolicate;
  if (name == "history") return runHistory;
  if (name == "cost") return runCost;
  if (name == "version") return runVersion;
  return runHelp;
}

// The format the user asked for, guessed from the raw arguments when parsing itself failed, so
// that a script asking for json gets json even for a usage error.
bool wantsJson(const std::vector<std::string>& args) {
  for (size_t i = 0; i < args.size(); ++i) {
    if (args[i] == "--") break;
    if (args[i] == "--format=json") return true;
    if (args[i] == "--format" && i + 1 < args.size() && args[i + 1] == "json") return true;
  }
  return false;
}

std::string outPath(const std::vector<std::string>& args) {
  std::string path;
  for (size_t i = 0; i < args.size(); ++i) {
    if (args[i] == "--") break;
    if (args[i].rfind("--out=", 0) == 0) path = args[i].substr(6);
    if (args[i] == "--out" && i + 1 < args.size()) path = args[i + 1];
  }
  return path;
}

void writeFailureDocument(const std::string& command, const std::vector<std::string>& args,
                          int exitCode, const std::string& kind, const std::string& message) {
  std::string text;
  try {
    base::Json doc = jsonResultHead(command, false);
    doc["exitCode"] = exitCode;
    doc["error"] = {{"kind", kind}, {"message", message}};
    text = base::dumpJson(doc) + "\n";
  } catch (...) {
    text = "{\"ok\":false}\n";
  }
  std::string out = outPath(args);
  if (!out.empty()) {
    try {
      base::writeFileAtomically(out, text);
      return;
    } catch (const std::exception&) {
      // The --out file is what failed; the document still goes somewhere.
    }
  }
  CLIOutput::shared().result(text);
}

}  // namespace

int runCommandLine(const std::vector<std::string>& rawArgs) {
  base::setSecretsFromEnvironment(true);
  base::installCancellationHandlers();

  std::vector<std::string> args = rawArgs;
  if (!args.empty() && args.front() == "--cli") args.erase(args.begin());
  if (args.empty()) {
    args.push_back("help");
  } else if (args.front() == "--version") {
    args.front() = "version";
  } else if (args.front() == "--help" || args.front() == "-h") {
    args.front() = "help";
  }
  std::string command = args.front();
  std::vector<std::string> rest(args.begin() + 1, args.end());
  CLIOutput& output = CLIOutput::shared();

  try {
    const CommandSpec* commandSpec = findCommand(command);
    if (!commandSpec) {
      throw CLIUsageError("Unknown command '" + command +
                          "'. Run `quillora help` for the list of commands.");
    }
    CommandContext context{*commandSpec, parseArguments(*commandSpec, rest), ""};
    if (context.args.has("help")) {
      output.result(commandUsage(command));
      return 0;
    }
    output.configure(context.args.has("quiet"), context.args.has("verbose"));

    std::string configPath;
    if (auto config = context.args.value("config")) {
      configPath = *config;
    } else if (const char* env = std::getenv("QUILLORA_CONFIG"); env && *env) {
      configPath = env;
    }
    if (!configPath.empty()) {
      for (const auto& warning : base::Settings::shared().applyRunConfiguration(configPath)) {
        output.warning(warning);
      }
    }
    context.format = checkedFormat(*commandSpec, context.args);
    return commandFunction(command)(context);
  } catch (const Error& error) {
    bool cancelled = base::isCancelled() || error.kind() == "cancelled";
    std::string kind = cancelled ? "cancelled" : error.kind();
    std::string message = cancelled ? "Cancelled." : error.what();
    int code = exitCodeForKind(kind);
    if (cancelled) {
      output.progress("Cancelled.");
    } else {
      output.error(message);
    }
    if (wantsJson(rest)) writeFailureDocument(command, rest, code, kind, message);
    return code;
  } catch (const std::exception& error) {
    // Anything else is a fault of ours; say what it was rather than crash.
    output.error(std::string("Internal error: ") + error.what());
    if (wantsJson(rest)) writeFailureDocument(command, rest, 1, "internal", error.what());
    return 1;
  }
}

}  // namespace quillora::cli
