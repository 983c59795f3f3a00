#include "cost/money.h"

#include <cmath>

#include "base/strings.h"

namespace quillora::cost {

std::string formatUSD(double dollars) {
  if (!std::isfinite(dollars)) return "$" + base::formatFixed(dollars, 2);
  double magnitude = std::fabs(dollars);
  int decimals = magnitude > 0 && magnitude < 0.005 ? 4 : 2;
  std::string text = base::formatFixed(magnitude, decimals);
  return (dollars < 0 ? "-$" : "$") + text;
}

}  // namespace quillora::cost
