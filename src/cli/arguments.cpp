#include "cli/arguments.h"

#include "base/strings.h"

namespace quillora::cli {

namespace {
const std::set<std::string> kGlobalValueOptions = {"config"};
const std::set<std::string> kGlobalFlags = {"quiet", "verbose", "help"};
}  // namespace

const std::vector<CommandSpec>& commandSpecs() {
  static const std::vector<CommandSpec> table = {
      {"analyze",
       {"trace", "repo", "engine", "model", "notes", "notes-file", "format", "out", "markdown-out",
        "app", "issue", "days", "symbols", "base", "branch-name", "min-verification"},
       {"symbols"},
       // dry-run is ours: every step up to the engine call, nothing sent.
       {"symbolicate", "save-history", "no-duplicates", "branch", "verify", "fail-on-unverified",
        "dry-run"},
       0,
       {"text", "markdown", "json"}},
      {"triage", {"format", "out", "markdown-out"}, {}, {}, 0, {"text", "markdown", "json"}},
      {"symbolicate", {"trace", "repo", "symbols", "format", "out"}, {"symbols"}, {}, 0, {"text", "json"}},
      {"history", {"format", "limit", "out"}, {}, {}, 2, {"text", "json"}},
      {"cost", {"month", "format", "out"}, {}, {}, 0, {"text", "json"}},
      {"version", {"format"}, {}, {}, 0, {"text", "json"}},
      {"help", {}, {}, {}, 1, {"text"}},
  };
  return table;
}

const CommandSpec* findCommand(const std::string& name) {
  for (const auto& commandSpec : commandSpecs())
    if (commandSpec.name == name) return &commandSpec;
  return nullptr;
}

std::optional<std::string> ParsedArguments::value(const std::string& option) const {
  auto it = values.find(option);
  if (it == values.end() || it->second.empty()) return std::nullopt;
  return it->second.back();
}

std::vector<std::string> ParsedArguments::all(const std::string& option) const {
  auto it = values.find(option);
  return it == values.end() ? std::vector<std::string>{} : it->second;
}

ParsedArguments parseArguments(const CommandSpec& commandSpec, const std::vector<std::string>& args) {
  auto takesValue = [&](const std::string& n) {
    return commandSpec.valueOptions.count(n) > 0 || kGlobalValueOptions.count(n) > 0;
  };
  auto isFlag = [&](const std::string& n) {
    return commandSpec.flags.count(n) > 0 || kGlobalFlags.count(n) > 0;
  };

  ParsedArguments parsed;
  bool optionsEnded = false;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    if (optionsEnded || arg == "-" || arg.empty() || arg[0] != '-') {
      parsed.positionals.push_back(arg);
      continue;
    }
    if (arg == "--") {
      optionsEnded = true;
      continue;
    }
    if (arg == "-h") {
      parsed.flags.insert("help");
      continue;
    }
    if (arg.rfind("--", 0) != 0) {
      throw CLIUsageError("Unknown option '" + arg +
                          "'. Options start with two dashes, e.g. --format json.");
    }
    std::string name = arg.substr(2);
    std::optional<std::string> inlineValue;
    if (auto eq = name.find('='); eq != std::string::npos) {
      inlineValue = name.substr(eq + 1);
      name = name.substr(0, eq);
    }
    if (isFlag(name)) {
      if (inlineValue) throw CLIUsageError("--" + name + " doesn't take a value.");
      parsed.flags.insert(name);
      continue;
    }
    if (!takesValue(name)) throw CLIUsageError("Unknown option '--" + name + "'.");
    std::string value;
    if (inlineValue) {
      value = *inlineValue;
    } else {
      if (i + 1 >= args.size()) throw CLIUsageError("--" + name + " needs a value.");
      value = args[++i];
    }
    auto& list = parsed.values[name];
    if (!list.empty() && commandSpec.repeatable.count(name) == 0) {
      throw CLIUsageError("--" + name + " was given more than once.");
    }
    list.push_back(value);
  }
  if (parsed.positionals.size() > commandSpec.maxPositionals) {
    std::vector<std::string> surplus(parsed.positionals.begin() + static_cast<long>(commandSpec.maxPositionals),
                                     parsed.positionals.end());
    throw CLIUsageError("Unexpected argument(s): " + base::join(surplus, " "));
  }
  return parsed;
}

std::string checkedFormat(const CommandSpec& commandSpec, const ParsedArguments& args) {
  auto format = args.value("format");
  if (!format) return commandSpec.formats.front();
  for (const auto& allowed : commandSpec.formats)
    if (allowed == *format) return allowed;
  throw CLIUsageError("--format must be one of: " + base::join(commandSpec.formats, ", ") + ".");
}

std::optional<long long> wholeNumberOption(const ParsedArguments& args, const std::string& name,
                                           long long lo, long long hi) {
  auto text = args.value(name);
  if (!text) return std::nullopt;
  auto number = base::parseInteger(base::trim(*text));
  if (!number || *number < lo || *number > hi) {
    throw CLIUsageError("--" + name + " must be a whole number from " + std::to_string(lo) + " to " +
                        std::to_string(hi) + ".");
  }
  return number;
}

}  // namespace quillora::cli
