#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/json.h"
#include "base/time.h"
#include "cost/analysis_usage.h"

namespace quillora::cost {

// Dollars per one million tokens. A missing cache price is charged at the input price.
struct ModelPrice {
  double input = 0;
  double output = 0;
  std::optional<double> cacheRead;
  std::optional<double> cacheWrite;
  bool operator==(const ModelPrice&) const = default;
};

// One period of a model's price. It applies to calls before `until`; nullopt runs to the distant
// future. Above `longContextAbove` prompt tokens, `longContext` applies instead.
struct Rate {
  ModelPrice price;
  std::optional<base::Clock::time_point> until;
  std::optional<long long> longContextAbove;
  std::optional<ModelPrice> longContext;
};

// Where a found price came from.
enum class Source { override, builtIn };

struct PriceMatch {
  ModelPrice price;
  Source source = Source::builtIn;
  std::string model;  // the row that matched, without the caller's suffix
};

// Model prices: the built-in rows, overlaid by the user's overrides.
class PriceTable {
 public:
  // The built-in rows only.
  PriceTable() = default;
  // The built-in rows with `overrides` (the object of "cost.priceOverrides": model name → {"input",
  // "output", optional "cacheRead", "cacheWrite"}) taking precedence. Throws ConfigError naming
  // the model whose price is malformed or negative.
  explicit PriceTable(const base::Json& overrides);
  // The built-in rows with the overrides of the settings ("cost.priceOverrides", or "prices" in
  // the run configuration). Throws ConfigError as above.
  static PriceTable configured();

  // Model name → its rates, oldest first. Change dates are at 08:00 UTC.
  static const std::map<std::string, std::vector<Rate>, std::less<>>& builtInRows();

  // The price of `model` for a call at `date` with `promptTokens` (input + cache tokens). A name
  // that isn't a row itself finds the row it starts with when the rest is a separator and a
  // version ("-20261001", "@latest", "-preview…"). nullopt: the model has no price.
  [[nodiscard]] std::optional<PriceMatch> lookup(std::string_view model, base::Clock::time_point date,
                                                 long long promptTokens) const;

  // The cost of one call in dollars: the engine's own reported cost (0 unless positive), else
  // the priced tokens. nullopt when the model has no price (an unpriced call, never zero).
  [[nodiscard]] std::optional<double> cost(const AnalysisUsage& usage,
                                           base::Clock::time_point date) const;

 private:
  [[nodiscard]] std::optional<PriceMatch> exact(std::string_view model, base::Clock::time_point date,
                                                long long promptTokens) const;
  std::map<std::string, ModelPrice, std::less<>> m_overrides;
};

// The dollars of `usage` at `price`; missing cache prices fall back to the input price.
double priceTokens(const ModelPrice& price, const AnalysisUsage& usage);

}  // namespace quillora::cost
