#pragma once

#include <string>

namespace quillora::cost {

// US dollars for people: "$12.34"; an amount that isn't zero but would show as "$0.00" keeps four
// decimals ("$0.0042") so that a cheap call doesn't read as free. POSIX number format.
std::string formatUSD(double dollars);

}  // namespace quillora::cost
