#include "cost/cost_entry.h"

namespace quillora::cost {

base::Json toJson(const CostEntry& entry) {
  base::Json json = {
      {"id", entry.id},
      {"date", base::formatISO8601(entry.date)},
      {"kind", entry.kind},
      {"usage", toJson(entry.usage)},
      {"failed", entry.failed},
  };
  if (entry.costUSD) json["costUSD"] = base::jsonNumber(*entry.costUSD);
  if (entry.recordID) json["recordID"] = *entry.recordID;
  return json;
}

}  // namespace quillora::cost
